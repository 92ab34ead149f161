// The host model's bitmap manager: images on disk, really decoded, so that a
// missing, truncated or corrupt file fails to load as it would in the host.
// A name ending in ".ifl" is an image list: a text file naming one image per
// line (docs/scene-format.md); its frame f is its entry f.
#pragma once

#include <string>
#include <vector>

#include "host/bitmap.h"

namespace hostmodel {

class MemoryBitmapManager : public BitmapManager {
 public:
  // Relative image names are looked up in `baseDir` (the scene's directory),
  // as the host looks them up along its map paths.
  explicit MemoryBitmapManager(std::string baseDir = {}) : baseDir_(std::move(baseDir)) {}
  void setBaseDir(std::string dir) { baseDir_ = std::move(dir); }

  BMMRES GetImageInfo(BitmapInfo* bi) override;
  Bitmap* Load(BitmapInfo* bi, BMMRES* status) override;

  // Bitmaps handed out and not yet released (tests check that none is left).
  int outstandingBitmaps() const { return outstanding_; }

 private:
  std::string resolve(const std::string& name) const;

  std::string baseDir_;
  int outstanding_ = 0;
};

// Whether `name` is an image list, by its extension (any letter case).
bool isImageList(const std::string& name);
// The entries of the image list `path`, resolved against its directory; false
// when it cannot be read.
bool readImageList(const std::string& path, std::vector<std::string>& entries);

}  // namespace hostmodel
