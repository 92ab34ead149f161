#include "importers/texture_files.h"

#include <cstdio>
#include <stdexcept>

#include "format/output_files.h"
#include "host/memory/file_reads.h"

namespace hostimport {

namespace fs = std::filesystem;

namespace {

// Names that readers of the import library give a map that has no file of
// its own: a placeholder for a skin the model does not name, or a texture
// that a program computes.
bool isStandIn(const std::string& name) {
  return name.rfind("$texture_dummy", 0) == 0 || name.rfind("Procedural,", 0) == 0;
}

}  // namespace

ModelTextures::ModelTextures(const std::string& modelPath, std::vector<std::string> texturePaths, bool dropMissing)
    : modelPath_(modelPath),
      search_(fs::absolute(fs::path(modelPath)).parent_path().lexically_normal().string(), std::move(texturePaths)),
      dropMissing_(dropMissing) {}

void ModelTextures::warn(const std::string& material, const std::string& text) const {
  std::fprintf(stderr, "WARNING: %s: material \"%s\": %s\n", modelPath_.c_str(), material.c_str(), text.c_str());
  std::fflush(stderr);
}

std::optional<std::string> ModelTextures::find(const std::string& material, const std::string& name) {
  if (isStandIn(name)) {
    warn(material, "\"" + name + "\" names no image file; the map is left out");
    return std::nullopt;
  }
  const hostmodel::TextureLookup found = search_.find(name);
  switch (found.outcome) {
    case hostmodel::TextureLookup::Outcome::Exact:
      return found.path;
    case hostmodel::TextureLookup::Outcome::OtherExtension:
      warn(material, "texture \"" + name + "\" not found; \"" + found.path +
                         "\", the same name with another extension, is taken instead");
      return found.path;
    case hostmodel::TextureLookup::Outcome::Missing:
      break;
  }
  if (!dropMissing_) return found.path;
  warn(material, "texture \"" + name + "\" not found (" + hostmodel::describeSearch(name, found) +
                     "); the map is left out");
  return std::nullopt;
}

std::string writeEmbeddedTexture(const fs::path& dir, const std::string& fileName, const unsigned char* bytes,
                                 std::size_t size) {
  const fs::path path = fs::absolute(dir / fileName).lexically_normal();
  if (const Result<void> written = replaceFileContents(path.string(), {{bytes, size}}); !written)
    throw std::runtime_error(path.string() + ": cannot write the embedded texture: " + written.error().message);
  hostmodel::noteFileWritten(path.string());
  return path.string();
}

}  // namespace hostimport
