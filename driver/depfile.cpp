#include "driver/depfile.h"

#include <sys/stat.h>

#include <ctime>
#include <filesystem>

#include "format/output_files.h"
#include "host/memory/file_reads.h"
#include "options/apply_options.h"
#include "options/options_dialog.h"

namespace zt2export {

namespace fs = std::filesystem;

std::string makeWord(const std::string& path) {
  std::string out;
  for (std::size_t i = 0; i < path.size(); ++i) {
    const char c = path[i];
    if (c == ' ' || c == '#') {
      // Backslashes just before an escaped character are themselves escaped.
      for (std::size_t j = i; j > 0 && path[j - 1] == '\\'; --j) out += '\\';
      out += '\\';
    }
    if (c == '$') out += '$';
    out += c;
  }
  // The word is followed by a space or a line's end: backslashes ending it
  // would escape that space, so they are escaped too.
  for (std::size_t j = path.size(); j > 0 && path[j - 1] == '\\'; --j) out += '\\';
  return out;
}

std::string dependencyRule(const std::vector<std::string>& targets, const std::vector<std::string>& prerequisites) {
  std::string rule;
  for (const std::string& target : targets) rule += (rule.empty() ? "" : " ") + makeWord(target);
  rule += ":";
  for (const std::string& p : prerequisites) rule += " \\\n  " + makeWord(p);
  return rule + "\n";
}

ExportFiles parseDependencyRule(const std::string& text) {
  ExportFiles rule;
  std::string word;
  bool any = false, afterColon = false;
  auto endWord = [&] {
    if (any) (afterColon ? rule.prerequisites : rule.targets).push_back(word);
    word.clear();
    any = false;
  };
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (c == '\\') {
      std::size_t n = 0;
      while (i + n < text.size() && text[i + n] == '\\') ++n;
      const char next = i + n < text.size() ? text[i + n] : '\0';
      const bool separatorColon = next == ':' && !afterColon &&
                                  (i + n + 1 == text.size() || text[i + n + 1] == ' ' || text[i + n + 1] == '\n');
      // Before what ends a word, backslashes come in escaped pairs, and an odd
      // one escapes the character (a newline: the line goes on).
      if (next == ' ' || next == '#' || next == '\n' || separatorColon) {
        word.append(n / 2, '\\');
        any = any || n >= 2;
        i += n;
        if (n % 2 == 1) {
          if (next == '\n') {
            endWord();
            i += 1;
          } else {
            word += next, any = true, i += 1;
          }
        }
        continue;
      }
      word.append(n, '\\'), any = true, i += n;
      continue;
    }
    if (c == '$' && i + 1 < text.size() && text[i + 1] == '$') {
      word += '$', any = true, i += 2;
      continue;
    }
    if (c == ' ' || c == '\t' || c == '\n') {
      endWord();
      ++i;
      continue;
    }
    if (c == ':' && !afterColon && (i + 1 == text.size() || text[i + 1] == ' ' || text[i + 1] == '\n')) {
      endWord();
      afterColon = true;
      ++i;
      continue;
    }
    word += c, any = true, ++i;
  }
  endWord();
  return rule;
}

long long nowNanoseconds() {
  timespec now{};
  // The coarse clock is the one file systems stamp changes with: a file written
  // just after a reading of the fine clock can carry an earlier time.
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

ExportFiles exportFiles(const std::string& output, const std::string& configDir, long long startedAt,
                        std::size_t writtenBefore, std::size_t readBefore) {
  ExportFiles files;
  files.targets.push_back(output);
  const std::string skin = fs::path(output).replace_extension(".skd").string();
  // A skin file left by an earlier run with other options is not this run's output.
  struct stat st {};
  if (::stat(skin.c_str(), &st) == 0 && st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec >= startedAt)
    files.targets.push_back(skin);
  const std::vector<std::string> written = hostmodel::filesWritten();
  for (std::size_t i = writtenBefore; i < written.size(); ++i) files.targets.push_back(written[i]);
  for (const char* name : {kOptionsFileName, kAdditionalConfigFileName}) {
    const std::string path = (fs::path(configDir) / name).lexically_normal().string();
    std::error_code ec;
    if (fs::is_regular_file(path, ec)) files.prerequisites.push_back(path);
  }
  const std::vector<std::string> read = hostmodel::filesRead();
  for (std::size_t i = readBefore; i < read.size(); ++i) files.prerequisites.push_back(read[i]);
  return files;
}

Result<void> depfileClash(const std::string& depfile, const ExportFiles& files) {
  RunInputs taken;
  for (const std::string& target : files.targets) taken.add(target, "a file the export wrote");
  for (const std::string& read : files.prerequisites) taken.add(read, "a file the export read (" + read + ")");
  const Result<void> clash = taken.clash(depfile, "the dependency file");
  // Without the file's name, which the caller puts first.
  if (!clash) return Error{clash.error().kind, clash.error().message.substr(depfile.size() + 2)};
  return {};
}

Result<void> writeDepfile(const std::string& depfile, const ExportFiles& files) {
  const std::string rule = dependencyRule(files.targets, files.prerequisites);
  return writeSmallFile(depfile, rule);
}

}  // namespace zt2export
