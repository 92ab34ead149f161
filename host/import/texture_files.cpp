#include "host/import/texture_files.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <stdexcept>

#include "host/memory/file_reads.h"

namespace hostimport {

namespace fs = std::filesystem;

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

}  // namespace

std::string resolveTexture(const fs::path& modelDir, const std::string& name) {
  std::string portable = name;
  std::replace(portable.begin(), portable.end(), '\\', '/');
  const fs::path given(portable);
  const fs::path direct = fs::absolute(given.is_absolute() ? given : modelDir / given).lexically_normal();
  std::error_code ec;
  if (fs::is_regular_file(direct, ec)) return direct.string();
  // Old models often carry paths of the machine they were made on: try the
  // bare file name beside the model too.
  const std::string wanted = lower(given.filename().string());
  for (const fs::path& dir : {direct.parent_path(), fs::absolute(modelDir).lexically_normal()}) {
    std::vector<fs::path> matches;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
      if (lower(it->path().filename().string()) == wanted) matches.push_back(it->path());
    if (!matches.empty()) return std::min_element(matches.begin(), matches.end())->string();
  }
  return direct.string();
}

std::string writeEmbeddedTexture(const fs::path& dir, const std::string& fileName, const unsigned char* bytes,
                                 std::size_t size) {
  const fs::path path = fs::absolute(dir / fileName).lexically_normal();
  fs::path temporary = path;
  temporary += ".part";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (out) out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    if (!out || !out.flush()) {
      std::error_code ignored;
      fs::remove(temporary, ignored);
      throw std::runtime_error(path.string() + ": cannot write the embedded texture");
    }
  }
  std::error_code ec;
  fs::rename(temporary, path, ec);
  if (ec) throw std::runtime_error(path.string() + ": cannot write the embedded texture");
  hostmodel::noteFileWritten(path.string());
  return path.string();
}

}  // namespace hostimport
