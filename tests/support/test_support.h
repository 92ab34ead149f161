// Helpers shared by the tests: a temporary directory per test, running the
// command-line tools, and reading files.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ztx_test {

// A fresh directory removed again when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// Runs a program with arguments (no shell) and captures both streams. Each
// `env` entry "NAME=value" sets a variable for the program, "NAME" removes it.
RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::vector<std::string>& env = {});
RunResult runExport(const std::vector<std::string>& args, const std::vector<std::string>& env = {});
RunResult runDump(const std::vector<std::string>& args);
// zt2export's arguments for exporting `input` to `output` with dir/config as
// the configuration directory, then `more`.
std::vector<std::string> exportArgs(const TempDir& dir, const std::string& input, const std::string& output,
                                    const std::vector<std::string>& more = {});

std::string readText(const std::string& path);
std::vector<unsigned char> readBytes(const std::string& path);
void writeText(const std::string& path, const std::string& text);
void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes);

// A file of the source tree, such as "examples/example.scene.json".
std::string sourcePath(const std::string& relative);
// The lines of a list of the source tree but blank ones and comments.
std::vector<std::string> listedLines(const std::string& relative);
// `text` as a test's name: letters and digits kept, anything else '_'.
std::string testName(std::string text);

// The Khronos glTF validator (tools/zt2view/web/validate.mjs) over the files,
// a line of errors and warnings each; nothing where node is not installed.
std::optional<RunResult> runGltfValidator(const std::vector<std::string>& files);

}  // namespace ztx_test
