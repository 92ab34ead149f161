#include "plugin/info_log.h"

#include <cstdarg>
#include <cstdio>

void InfoLog::logMessage(const char* format, ...) {
  char buffer[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  lines_.emplace_back(buffer);
}

std::string InfoLog::text() const {
  std::string out;
  for (const std::string& line : lines_) {
    out += line;
    out += "\r\n";
  }
  return out;
}
