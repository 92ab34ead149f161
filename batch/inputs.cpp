// Which files of the source tree a run exports, and what each one writes.
#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "batch/batch.h"
#include "batch/batch_internal.h"
#include "host/import/importers.h"

namespace ztbatch {

namespace fs = std::filesystem;

std::vector<std::string> defaultIncludes() {
  std::vector<std::string> patterns = {"*.json", "*.3ds"};
  std::istringstream formats(hostimport::formatsHelp());
  for (std::string ext; formats >> ext;) patterns.push_back("*." + ext);
  return patterns;
}

bool globMatches(const std::string& pattern, const std::string& relative) {
  const std::string subject =
      pattern.find('/') == std::string::npos ? fs::path(relative).filename().string() : relative;
  return ::fnmatch(pattern.c_str(), subject.c_str(), FNM_CASEFOLD) == 0;
}

std::vector<std::string> findInputs(const BatchRequest& request) {
  const fs::path source = fs::absolute(request.sourceDir).lexically_normal();
  std::error_code ec;
  if (!fs::is_directory(source, ec)) throw BatchError(request.sourceDir + ": not a directory");
  const fs::path output = fs::absolute(request.outputDir).lexically_normal();
  const std::vector<std::string> include = request.include.empty() ? defaultIncludes() : request.include;
  auto any = [](const std::vector<std::string>& patterns, const std::string& relative) {
    return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& p) { return globMatches(p, relative); });
  };

  std::vector<std::string> inputs;
  fs::recursive_directory_iterator it(source, fs::directory_options::skip_permission_denied, ec);
  if (ec) throw BatchError(request.sourceDir + ": cannot read the directory: " + ec.message());
  for (const fs::recursive_directory_iterator end; it != end; it.increment(ec)) {
    if (ec) throw BatchError(request.sourceDir + ": cannot read the directory: " + ec.message());
    std::error_code kind;
    // What a run writes is never read back as one of its inputs.
    if (it->is_directory(kind)) {
      if (fs::equivalent(it->path(), output, kind)) it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file(kind) || it->path().filename() == kManifestName) continue;
    const std::string relative = it->path().lexically_relative(source).generic_string();
    if (any(include, relative) && !any(request.exclude, relative)) inputs.push_back(relative);
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

std::string outputFor(const std::string& sourceDir, const std::string& input) {
  const fs::path path(input);
  // The name zt2export gives its output when -o is not given.
  if (!hostimport::isSceneDescription((fs::path(sourceDir) / path).string()))
    return (path.parent_path() / (path.stem().string() + ".zt2")).generic_string();
  std::string stem = path.filename().string();
  for (const std::string suffix : {".json", ".scene"})
    if (stem.size() > suffix.size() && stem.ends_with(suffix)) stem.resize(stem.size() - suffix.size());
  return (path.parent_path() / (stem + ".zt2")).generic_string();
}

}  // namespace ztbatch
