#include "host/inhouse/system.h"

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace {
T_System gSystem;
T_File gFile;
}  // namespace

T_System* Sys = &gSystem;
T_File* File = &gFile;

void T_System::verbose(const char* format, ...) {
  if (!verboseActive()) return;
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  const int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
  va_end(args);
  sink_(text);
}

bool T_File::exists(const std::string& path) const {
  std::error_code ec;
  return std::filesystem::exists(path, ec);
}

bool T_File::isDirectory(const std::string& path) const {
  std::error_code ec;
  return std::filesystem::is_directory(path, ec);
}
