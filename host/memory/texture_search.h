// Where the image a material names is found. Models carry names of the
// machine they were made on: another folder, another letter case, sometimes
// another image format than the files that travel with them. The search
// (docs/import.md, "Finding textures") is shared by the import, which writes
// what it finds into the scene, and by the host's bitmap manager, which looks
// again for names a scene file gives and explains what it could not find.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace hostmodel {

struct TextureLookup {
  enum class Outcome {
    Exact,           // the name as given, or its file name in a searched folder in any letter case
    OtherExtension,  // only a file of the same stem with another image extension
    Missing,
  };
  Outcome outcome = Outcome::Missing;
  std::string path;                  // the file taken (absolute when found by a search); when missing, the name as it resolves
  std::vector<std::string> folders;  // the folders searched, in order
};

class TextureSearch {
 public:
  TextureSearch() = default;
  // `baseDir`: the model's (or scene file's) folder; `extraDirs`: further
  // folders (--texture-path, a scene's texturePaths), searched after it.
  TextureSearch(std::string baseDir, std::vector<std::string> extraDirs);

  const std::string& baseDir() const { return baseDir_; }
  const std::vector<std::string>& extraDirs() const { return extraDirs_; }

  TextureLookup find(const std::string& name) const;

 private:
  const std::vector<std::string>& listing(const std::string& dir) const;

  std::string baseDir_;
  std::vector<std::string> extraDirs_;
  // File names of each folder searched, listed once per search object.
  mutable std::map<std::string, std::vector<std::string>> listings_;
};

// The image extensions tried, in order of preference, for a name whose file
// is missing (lower case, with the dot).
const std::vector<std::string>& imageExtensions();

// "looked for \"m134.png\" (any letter case, or m134 with another image
// extension) in: a, b, c", for messages about a missing texture.
std::string describeSearch(const std::string& name, const TextureLookup& lookup);

}  // namespace hostmodel
