// The host model's bitmap manager: images on disk, really decoded, so that a
// missing, truncated or corrupt file fails to load as it would in the host.
// A name ending in ".ifl" is an image list: a text file naming one image per
// line (docs/scene-format.md); its frame f is its entry f.
//
// Only regular files are read: a FIFO or a device named as an image or an
// entry fails to load at once instead of being waited on. An image list is
// read once and an image decoded once for as long as the file stays the same
// (same device, inode, size and times), so that a list of N entries costs N
// loads, not N reads of the list.
#pragma once

#include <set>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/bitmap.h"
#include "host/memory/texture_search.h"

namespace hostmodel {

class RegularFile;

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

  // Why files failed to load, once per file in the order met, such as
  // "img/a.png: cannot read the image: a FIFO, not a regular file". The
  // exporter's own message names only the image it asked for.
  const std::vector<std::string>& problems() const { return problems_; }

 private:
  struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long modified = 0, changed = 0;  // nanoseconds
    bool operator==(const Stamp&) const = default;
  };
  struct ImageList {
    std::string path;
    Stamp stamp;
    std::vector<std::string> entries;
  };
  struct Decoded {
    Stamp stamp;
    int width = 0, height = 0;
  };

  std::string resolve(const std::string& name);
  static Stamp stampOf(const struct stat& status);
  // The entries of the list `path`, read again only when the file changed;
  // none (and a problem noted) when it cannot be read.
  const std::vector<std::string>* imageList(const std::string& path);
  bool decode(const std::string& path, int& width, int& height);
  void noteProblem(const std::string& path, const std::string& what);
  void note(const std::string& line);
  void noteFailure(const std::string& name);

  std::string baseDir_;
  TextureSearch search_;
  std::vector<std::string> notes_;
  std::set<std::string> noted_;
  int outstanding_ = 0;
  ImageList list_;  // the list read last: its frames are loaded one after the other
  std::unordered_map<std::string, Decoded> decoded_;
  std::vector<std::string> problems_;
  std::unordered_set<std::string> troubledFiles_;
};

// Whether `name` is an image list, by its extension (any letter case).
bool isImageList(const std::string& name);
// The entries of the image list `path`, resolved against its directory; false
// when it cannot be read, with the reason in `reason` when given.
bool readImageList(const std::string& path, std::vector<std::string>& entries, std::string* reason = nullptr);

}  // namespace hostmodel
