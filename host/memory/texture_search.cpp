#include "host/memory/texture_search.h"
#include "host/inhouse/text.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace hostmodel {

namespace fs = std::filesystem;

namespace {

bool isDirectory(const fs::path& p) {
  std::error_code ec;
  return fs::is_directory(p, ec);
}

std::string absoluteFolder(const fs::path& p) {
  std::error_code ec;
  fs::path a = fs::absolute(p, ec);
  if (ec) a = p;
  std::string s = a.lexically_normal().string();
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

// Folders named "textures" in any letter case inside `dir`.
std::vector<std::string> texturesFolders(const fs::path& dir) {
  std::vector<std::string> out;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    if (ztext::asciiLower(it->path().filename().string()) == "textures" && isDirectory(it->path()))
      out.push_back(absoluteFolder(it->path()));
  std::sort(out.begin(), out.end());
  return out;
}

// `path` with each part that does not exist as written replaced by the entry
// of its folder that differs only in case; empty when some part has none.
fs::path caseInsensitivePath(const fs::path& path) {
  fs::path walked = path.root_path();
  for (const fs::path& part : path.relative_path()) {
    std::error_code ec;
    if (fs::exists(walked / part, ec)) {
      walked /= part;
      continue;
    }
    const std::string wanted = ztext::asciiLower(part.string());
    std::vector<std::string> matches;
    for (fs::directory_iterator it(walked.empty() ? fs::path(".") : walked, ec), end; !ec && it != end; it.increment(ec))
      if (ztext::asciiLower(it->path().filename().string()) == wanted) matches.push_back(it->path().filename().string());
    if (matches.empty()) return {};
    walked /= *std::min_element(matches.begin(), matches.end());
  }
  return walked;
}

}  // namespace

const std::vector<std::string>& imageExtensions() {
  // The formats browsers and the common decoder read first, then the studio
  // and game formats that need the fallback decoder.
  static const std::vector<std::string> list = {".png", ".jpg", ".jpeg", ".tga", ".bmp", ".gif", ".dds", ".tif",
                                                ".tiff", ".exr", ".psd", ".hdr", ".rgb", ".rgba", ".sgi",
                                                ".bw", ".pcx", ".ppm", ".pgm", ".pnm", ".pic", ".webp"};
  return list;
}

TextureSearch::TextureSearch(std::string baseDir, std::vector<std::string> extraDirs)
    : baseDir_(std::move(baseDir)), extraDirs_(std::move(extraDirs)) {}

const std::vector<std::string>& TextureSearch::listing(const std::string& dir) const {
  const auto known = listings_.find(dir);
  if (known != listings_.end()) return known->second;
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code fileEc;
    if (it->is_regular_file(fileEc)) names.push_back(it->path().filename().string());
  }
  // Byte order, so that of two names differing in case the same one is
  // always taken.
  std::sort(names.begin(), names.end());
  return listings_.emplace(dir, std::move(names)).first->second;
}

TextureLookup TextureSearch::find(const std::string& name) const {
  TextureLookup result;
  std::string portable = name;
  std::replace(portable.begin(), portable.end(), '\\', '/');
  const fs::path given(portable);
  // The name resolves as the host resolves it, relative to the base folder
  // as that was given, so that messages show paths as the user wrote them.
  const fs::path base = baseDir_.empty() ? fs::path(".") : fs::path(baseDir_);
  const fs::path direct = (given.is_absolute() || baseDir_.empty() ? given : base / given).lexically_normal();
  result.path = direct.string();
  if (portable.empty()) return result;
  std::error_code ec;
  if (fs::is_regular_file(direct, ec)) {
    result.outcome = TextureLookup::Outcome::Exact;
    return result;
  }
  // A name written on a system that ignores case may differ in the case of
  // its folders as well as of its file.
  if (const fs::path walked = caseInsensitivePath(direct); !walked.empty() && fs::is_regular_file(walked, ec)) {
    result.outcome = TextureLookup::Outcome::Exact;
    result.path = walked.string();
    return result;
  }

  // The folders, in order: the one the name points into, the base folder,
  // its textures folders and its parent's, then the extra folders.
  auto add = [&](const std::string& folder) {
    if (std::find(result.folders.begin(), result.folders.end(), folder) == result.folders.end())
      result.folders.push_back(folder);
  };
  add(absoluteFolder(direct.parent_path()));
  const std::string baseFolder = absoluteFolder(base);
  add(baseFolder);
  for (const std::string& t : texturesFolders(baseFolder)) add(t);
  for (const std::string& t : texturesFolders(fs::path(baseFolder).parent_path())) add(t);
  for (const std::string& extra : extraDirs_) add(absoluteFolder(extra));

  const std::string wanted = ztext::asciiLower(given.filename().string());
  if (wanted.empty()) return result;
  for (const std::string& folder : result.folders) {
    for (const std::string& file : listing(folder)) {
      if (ztext::asciiLower(file) != wanted) continue;
      result.outcome = TextureLookup::Outcome::Exact;
      result.path = (fs::path(folder) / file).string();
      return result;
    }
  }
  const std::string stem = ztext::asciiLower(given.stem().string());
  const std::string ownExtension = ztext::asciiLower(given.extension().string());
  const auto& extensions = imageExtensions();
  for (const std::string& folder : result.folders) {
    std::size_t bestRank = extensions.size();
    std::string best;
    for (const std::string& file : listing(folder)) {
      const fs::path f(file);
      if (ztext::asciiLower(f.stem().string()) != stem) continue;
      const std::string ext = ztext::asciiLower(f.extension().string());
      if (ext == ownExtension) continue;
      const auto at = std::find(extensions.begin(), extensions.end(), ext);
      const std::size_t rank = static_cast<std::size_t>(at - extensions.begin());
      if (rank < bestRank) bestRank = rank, best = file;
    }
    if (!best.empty()) {
      result.outcome = TextureLookup::Outcome::OtherExtension;
      result.path = (fs::path(folder) / best).string();
      return result;
    }
  }
  return result;
}

std::string describeSearch(const std::string& name, const TextureLookup& lookup) {
  std::string portable = name;
  std::replace(portable.begin(), portable.end(), '\\', '/');
  const fs::path given(portable);
  std::string text = "looked for \"" + given.filename().string() + "\" (in any letter case, or " +
                     given.stem().string() + " with another image extension) in: ";
  for (std::size_t i = 0; i < lookup.folders.size(); ++i) {
    text += (i ? ", " : "") + lookup.folders[i];
    if (!isDirectory(lookup.folders[i])) text += " (no such folder)";
  }
  return text;
}

}  // namespace hostmodel
