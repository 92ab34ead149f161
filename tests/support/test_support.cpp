#include "support/test_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace ztx_test {

TempDir::TempDir() {
  static std::atomic<int> counter{0};
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (;;) {
    path_ = base / ("ztx-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
                    std::to_string(rd() % 100000));
    if (std::filesystem::create_directory(path_)) break;
  }
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

RunResult run(const std::string& program, const std::vector<std::string>& args, const std::vector<std::string>& env) {
  TempDir dir;
  const std::string outPath = dir.file("stdout"), errPath = dir.file("stderr");
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int in = ::open("/dev/null", O_RDONLY);
    ::dup2(out, 1);
    ::dup2(err, 2);
    ::dup2(in, 0);
    for (const std::string& e : env) {
      const std::size_t eq = e.find('=');
      if (eq == std::string::npos)
        ::unsetenv(e.c_str());
      else
        ::setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  RunResult r;
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.out = readText(outPath);
  r.err = readText(errPath);
  return r;
}

RunResult runExport(const std::vector<std::string>& args, const std::vector<std::string>& env) {
  return run(ZTX_ZT2EXPORT, args, env);
}
RunResult runDump(const std::vector<std::string>& args) { return run(ZTX_ZT2DUMP, args); }

std::vector<std::string> exportArgs(const TempDir& dir, const std::string& input, const std::string& output,
                                    const std::vector<std::string>& more) {
  std::vector<std::string> args = {input, "-o", output, "--config-dir", dir.file("config")};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<unsigned char> readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string sourcePath(const std::string& relative) { return std::string(ZTX_SOURCE_DIR) + "/" + relative; }

std::vector<std::string> listedLines(const std::string& relative) {
  std::vector<std::string> out;
  std::ifstream in(sourcePath(relative));
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] != '#') out.push_back(line);
  return out;
}

std::string testName(std::string text) {
  for (char& c : text) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return text;
}

std::optional<RunResult> runGltfValidator(const std::vector<std::string>& files) {
  if (run("/usr/bin/env", {"node", "--version"}).exitCode != 0) return std::nullopt;
  const std::string web = sourcePath("tools/zt2view/web");
  EXPECT_TRUE(std::filesystem::exists(web + "/node_modules/gltf-validator")) << "gltf-validator not installed: run tools/setup.sh";
  std::vector<std::string> args{"node", web + "/validate.mjs"};
  args.insert(args.end(), files.begin(), files.end());
  return run("/usr/bin/env", args);
}

}  // namespace ztx_test
