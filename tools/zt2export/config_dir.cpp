#include "tools/zt2export/config_dir.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

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

}  // namespace zt2export
