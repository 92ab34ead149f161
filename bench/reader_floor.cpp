// The least a model's isolated reader can cost: this program forks a child
// that only loads the module of the import library's readers (as zt2export's
// reader does before it reads anything) and ends; the parent waits for it.
// peer_bench.py times it beside the peer's whole export of a small model.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: reader_floor MODULE\n");
    return 2;
  }
  const std::string module = argv[1];
  const pid_t pid = ::fork();
  if (pid < 0) return 1;
  if (pid == 0) _exit(::dlopen(module.c_str(), RTLD_LAZY | RTLD_LOCAL) ? 0 : 1);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "reader_floor: %s could not be loaded\n", module.c_str());
    return 1;
  }
  return 0;
}
