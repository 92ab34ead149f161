// The export's messages, shown at the end in the "Export Info" window when an
// error was reported or "Dump info" is set. Callers put the prefix ("ERROR: ",
// "WARNING: ", "INFO: ") into their format string; the log adds nothing.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

// The last line of the info text of an export cancelled by errors in the
// scene. A host learns the outcome only from what the exporter shows, so the
// front ends read their status from this line.
inline constexpr const char kExportCanceledMessage[] = "Export process canceled due to error(s) encountered.";

class InfoLog {
 public:
  // Formats like printf and appends one line. Lines longer than 1023 bytes are cut there.
  void logMessage(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void logMessageV(const char* format, va_list args);
  const std::vector<std::string>& lines() const { return lines_; }
  bool empty() const { return lines_.empty(); }
  void clear() { lines_.clear(); }
  // Puts `line` in the place of line `index` (a line that told of something
  // the export then did not do).
  void replaceLine(std::size_t index, std::string line) {
    if (index < lines_.size()) lines_[index] = std::move(line);
  }
  // Every line followed by "\r\n", the text the info window shows.
  std::string text() const;

 private:
  std::vector<std::string> lines_;
};
