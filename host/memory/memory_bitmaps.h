// The host model's bitmap manager: images on disk, really decoded, so that a
// missing, truncated or corrupt file fails to load as it would in the host.
// A name ending in ".ifl" is an image list: a text file naming one image per
// line (docs/scene-format.md); its frame f is its entry f.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/bitmap.h"
#include "host/memory/texture_search.h"

namespace hostmodel {

class MemoryBitmapManager : public BitmapManager {
 public:
  // Relative image names are looked up in `baseDir` (the scene's directory),
  // as the host looks them up along its map paths.
  explicit MemoryBitmapManager(std::string baseDir = {}) : baseDir_(std::move(baseDir)), search_(baseDir_, {}) {}
  void setBaseDir(std::string dir) {
    baseDir_ = std::move(dir);
    search_ = TextureSearch(baseDir_, search_.extraDirs());
  }
  // Further folders searched for images after the scene's own
  // (texture_search.h); the search also matches names in another letter
  // case or folder, or with another image extension.
  void setSearchDirs(std::vector<std::string> dirs) { search_ = TextureSearch(baseDir_, std::move(dirs)); }
  const std::vector<std::string>& searchDirs() const { return search_.extraDirs(); }

  BMMRES GetImageInfo(BitmapInfo* bi) override;
  Bitmap* Load(BitmapInfo* bi, BMMRES* status) override;

  // Bitmaps handed out and not yet released (tests check that none is left).
  int outstandingBitmaps() const { return outstanding_; }

  // What the manager has to say about images that it found only under
  // another extension or could not load ("WARNING: ..." and "ERROR: ..."
  // lines, each once), in the order met.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  std::string resolve(const std::string& name);
  void note(const std::string& line);
  void noteFailure(const std::string& name, const std::string& path, const std::string& why);

  std::string baseDir_;
  TextureSearch search_;
  std::vector<std::string> notes_;
  std::set<std::string> noted_;
  int outstanding_ = 0;
};

// Whether `name` is an image list, by its extension (any letter case).
bool isImageList(const std::string& name);
// The entries of the image list `path`, resolved against its directory; false
// when it cannot be read.
bool readImageList(const std::string& path, std::vector<std::string>& entries);

}  // namespace hostmodel
