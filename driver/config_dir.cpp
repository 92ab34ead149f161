#include "driver/config_dir.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "options/options_dialog.h"

namespace zt2export {

std::string defaultConfigDir() {
  namespace fs = std::filesystem;
  fs::path base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg)
    base = xdg;
  else if (const char* home = std::getenv("HOME"); home && *home)
    base = fs::path(home) / ".config";
  else if (const passwd* user = ::getpwuid(::getuid()); user && user->pw_dir && *user->pw_dir)
    base = fs::path(user->pw_dir) / ".config";
  else
    return {};
  return (base / "ztexport").string();
}

Result<void> checkOptionsFile(const std::string& configDir) {
  const std::string path = configDir + "/" + kOptionsFileName;
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return {};
  const char* kind = S_ISDIR(st.st_mode) ? "a folder" : S_ISFIFO(st.st_mode) ? "a FIFO" : S_ISSOCK(st.st_mode) ? "a socket" : "a device";
  return Error{ErrorKind::refused, path + ": not read: it is " + kind + ", not a file of saved options"};
}

}  // namespace zt2export
