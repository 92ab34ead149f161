// Which files of the source tree a run exports, and what each one writes.
#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "batch/batch.h"
#include "batch/batch_internal.h"
#include "importers/importers.h"
#include "host/inhouse/text.h"

namespace ztbatch {

namespace fs = std::filesystem;

namespace {

// The start of a file as ASCII: UTF-16 (by its byte-order mark) loses its
// zero bytes, which is enough to read element names.
std::string headOf(const std::string& path, std::size_t size) {
  std::ifstream in(path, std::ios::binary);
  std::string head(size, '\0');
  in.read(head.data(), static_cast<std::streamsize>(size));
  head.resize(static_cast<std::size_t>(in.gcount()));
  if (head.size() >= 2 && ((head[0] == '\xff' && head[1] == '\xfe') || (head[0] == '\xfe' && head[1] == '\xff'))) {
    head.erase(0, 2);
    head.erase(std::remove(head.begin(), head.end(), '\0'), head.end());
  } else if (head.rfind("\xef\xbb\xbf", 0) == 0) {
    head.erase(0, 3);
  }
  return head;
}

}  // namespace

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

bool isModelXml(const std::string& path) {
  const std::string head = headOf(path, 4096);
  // The root element: past the declaration, comments, the document type and
  // processing instructions.
  std::size_t at = 0;
  for (;;) {
    at = head.find('<', at);
    if (at == std::string::npos || at + 1 >= head.size()) return false;
    if (head.compare(at, 4, "<!--") == 0) {
      at = head.find("-->", at);
      if (at == std::string::npos) return false;
      continue;
    }
    if (head[at + 1] == '?' || head[at + 1] == '!') {
      ++at;
      continue;
    }
    break;
  }
  std::size_t end = at + 1;
  while (end < head.size() && !std::isspace(static_cast<unsigned char>(head[end])) && head[end] != '>' &&
         head[end] != '/')
    ++end;
  std::string root = ztext::asciiLower(head.substr(at + 1, end - at - 1));
  if (const std::size_t colon = root.find(':'); colon != std::string::npos) root.erase(0, colon + 1);
  // The readers the model library has for XML, by the root element they take.
  if (root == "collada" || root == "irr_scene" || root == "world") return true;
  if (root == "mesh")  // an Irrlicht mesh names its format; an Ogre mesh, its file
    return ztext::asciiLower(head).find("irrmesh") != std::string::npos || ztext::asciiLower(path).ends_with(".mesh.xml");
  return false;
}

std::vector<std::string> findInputs(const BatchRequest& request, std::vector<SkippedFolder>* skipped) {
  const fs::path source = fs::absolute(request.sourceDir).lexically_normal();
  std::error_code ec;
  if (!fs::is_directory(source, ec)) throw BatchError(request.sourceDir + ": not a directory");
  const fs::path output = fs::absolute(request.outputDir).lexically_normal();
  const std::vector<std::string> include = request.include.empty() ? defaultIncludes() : request.include;
  auto any = [](const std::vector<std::string>& patterns, const std::string& relative) {
    return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& p) { return globMatches(p, relative); });
  };
  auto isInput = [&](const fs::path& path, const std::string& relative) {
    if (!any(include, relative) || any(request.exclude, relative)) return false;
    // Many XML files are no models; the model reader would refuse them.
    return ztext::asciiLower(path.extension().string()) != ".xml" || isModelXml(path.string());
  };

  // Every folder is read, or the run refused: no file goes unlooked-at
  // without a word.
  std::vector<std::string> inputs;
  std::vector<fs::path> folders = {source};
  fs::path outputInside;
  while (!folders.empty()) {
    const fs::path folder = folders.back();
    folders.pop_back();
    fs::directory_iterator it(folder, ec);
    if (ec) throw BatchError(folder.string() + ": cannot read the folder: " + ec.message());
    for (const fs::directory_iterator end; it != end; it.increment(ec)) {
      if (ec) throw BatchError(folder.string() + ": cannot read the folder: " + ec.message());
      std::error_code kind;
      if (it->is_directory(kind)) {
        // What a run writes is never read back as one of its inputs.
        if (fs::equivalent(it->path(), output, kind))
          outputInside = it->path();
        else
          folders.push_back(it->path());
        continue;
      }
      if (!it->is_regular_file(kind) || it->path().filename() == kManifestName) continue;
      const std::string relative = it->path().lexically_relative(source).generic_string();
      if (isInput(it->path(), relative)) inputs.push_back(relative);
    }
  }
  if (!outputInside.empty()) {
    // The output folder is skipped; a source in it would be skipped with it,
    // which the run refuses rather than report success for a file it never
    // looked at. The files a batch wrote there are no sources.
    const std::string folder = outputInside.lexically_relative(source).generic_string();
    for (fs::recursive_directory_iterator it(outputInside, ec), end; !ec && it != end; it.increment(ec)) {
      std::error_code kind;
      if (!it->is_regular_file(kind)) continue;
      const std::string relative = it->path().lexically_relative(source).generic_string();
      const std::string name = it->path().filename().string();
      if (name == kManifestName || name.ends_with(kStampSuffix) || name.ends_with(".zt2") || name.ends_with(".skd"))
        continue;
      if (isInput(it->path(), relative))
        throw BatchError(output.string() + ": the output directory lies inside the source directory " +
                         source.string() + " and holds " + relative +
                         ", which would be skipped with it: move the sources out of " + folder +
                         " or choose an output directory outside " + source.string());
    }
    if (skipped != nullptr) skipped->push_back({folder, "the output directory"});
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

std::vector<std::string> outputsFor(const std::string& sourceDir, const std::vector<std::string>& inputs,
                                    std::map<std::size_t, std::string>* clashes) {
  std::vector<std::string> outputs;
  std::map<std::string, std::vector<std::size_t>> writers;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    outputs.push_back(outputFor(sourceDir, inputs[i]));
    writers[outputs.back()].push_back(i);
  }
  for (const auto& [output, users] : writers)
    if (users.size() > 1)
      for (std::size_t i : users) outputs[i] = inputs[i] + ".zt2";
  // A whole name can still meet another's short one ("car.3ds.obj").
  writers.clear();
  for (std::size_t i = 0; i < inputs.size(); ++i) writers[outputs[i]].push_back(i);
  for (const auto& [output, users] : writers) {
    if (users.size() < 2) continue;
    std::string names;
    for (std::size_t i : users) names += (names.empty() ? "" : " and ") + inputs[i];
    for (std::size_t i : users) {
      if (clashes != nullptr) (*clashes)[i] = "ERROR: " + names + " would all be exported to " + output + "; rename one";
      outputs[i].clear();
    }
  }
  return outputs;
}

}  // namespace ztbatch
