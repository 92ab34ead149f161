// zt2export --batch as the batch tests run it: the command line, the
// manifest read back, and a batch left running in the background.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ztx_test {

std::vector<std::string> batchArgs(const std::filesystem::path& src, const std::filesystem::path& out,
                                   const std::filesystem::path& config, std::vector<std::string> more = {});

// The output folder's manifest, and each input's status in it.
nlohmann::json manifestOf(const std::filesystem::path& out);
std::map<std::string, std::string> statuses(const std::filesystem::path& out);

// zt2export started in the background with `args`, its standard error read
// through a pipe.
struct Background {
  pid_t pid = -1;
  int err = -1;
  std::string seen;

  explicit Background(std::vector<std::string> args);
  // Reads standard error until `text` shows (or it ends); true when it showed.
  bool awaitText(const std::string& text);
  // Reads to the end and waits: the exit status, or -1 when it did not exit.
  int finish();
};

}  // namespace ztx_test
