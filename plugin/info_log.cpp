#include "plugin/info_log.h"

#include <cstdarg>
#include <cstdio>

void InfoLog::logMessage(const char* format, ...) {
  va_list args;
  va_start(args, format);
  logMessageV(format, args);
  va_end(args);
}

void InfoLog::logMessageV(const char* format, va_list args) {
  char buffer[1024];
  std::vsnprintf(buffer, sizeof buffer, format, args);
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
