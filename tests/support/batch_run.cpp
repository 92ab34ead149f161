#include "support/batch_run.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/test_support.h"

namespace ztx_test {

std::vector<std::string> batchArgs(const std::filesystem::path& src, const std::filesystem::path& out,
                                   const std::filesystem::path& config, std::vector<std::string> more) {
  std::vector<std::string> args = {"--batch", src.string(), "-o", out.string(), "--config-dir", config.string()};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

nlohmann::json manifestOf(const std::filesystem::path& out) {
  return nlohmann::json::parse(readText((out / "ztexport-manifest.json").string()));
}

std::map<std::string, std::string> statuses(const std::filesystem::path& out) {
  std::map<std::string, std::string> s;
  const nlohmann::json manifest = manifestOf(out);
  for (const nlohmann::json& f : manifest["files"]) s[f["input"]] = f["status"];
  return s;
}

Background::Background(std::vector<std::string> args) {
  args.insert(args.begin(), ZTX_ZT2EXPORT);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int fds[2];
  if (::pipe(fds) != 0) return;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  err = fds[0];
}

bool Background::awaitText(const std::string& text) {
  char block[512];
  while (seen.find(text) == std::string::npos) {
    const ssize_t n = ::read(err, block, sizeof block);
    if (n <= 0) return false;
    seen.append(block, static_cast<std::size_t>(n));
  }
  return true;
}

int Background::finish() {
  awaitText("\x01");  // to the end
  ::close(err);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace ztx_test
