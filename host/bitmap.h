// The host's bitmap manager as the texture export reaches it: an image is
// described by its file name, the manager fills in its frame range, and each
// frame is loaded on its own. A loaded bitmap carries the description of the
// file it actually came from (for an image list, the entry of that frame).
#pragma once

#include <string>

// Result of the bitmap manager's calls; 0 is success.
using BMMRES = int;
inline constexpr BMMRES BMMRES_SUCCESS = 0;
inline constexpr BMMRES BMMRES_ERRORTAKENCARE = 1;  // the file could not be read or decoded

class BitmapInfo {
 public:
  BitmapInfo() = default;
  explicit BitmapInfo(std::string name) : name_(std::move(name)) {}

  // The path as given (for a loaded bitmap: the full path of the file read).
  const std::string& Name() const { return name_; }
  // The file name without its directory.
  std::string Filename() const;
  void SetName(std::string name) { name_ = std::move(name); }

  int First() const { return first_; }
  int Last() const { return last_; }
  void SetFirstFrame(int f) { first_ = f; }
  void SetLastFrame(int f) { last_ = f; }
  int NumberFrames() const { return last_ - first_ + 1; }
  // The frame a load reads.
  int CurrentFrame() const { return current_; }
  void SetCurrentFrame(int f) { current_ = f; }

  int Width() const { return width_; }
  int Height() const { return height_; }
  void SetWidth(int w) { width_ = w; }
  void SetHeight(int h) { height_ = h; }

 private:
  std::string name_;
  int first_ = 0;
  int last_ = 0;
  int current_ = 0;
  int width_ = 0;
  int height_ = 0;
};

class Bitmap {
 public:
  // The description of the file this bitmap was loaded from.
  virtual const BitmapInfo& Info() const = 0;
  // Releases the bitmap; it must not be used afterwards.
  virtual void DeleteThis() = 0;

 protected:
  virtual ~Bitmap() = default;
};

class BitmapManager {
 public:
  virtual ~BitmapManager() = default;
  // Fills `bi`'s frame range (and size) from the file it names.
  virtual BMMRES GetImageInfo(BitmapInfo* bi) = 0;
  // Loads frame `bi->CurrentFrame()`; none, with a status other than success,
  // when the file is missing, unreadable or not an image.
  virtual Bitmap* Load(BitmapInfo* bi, BMMRES* status) = 0;
};
