#include "host/memory/memory_bitmaps.h"

#include "host/inhouse/text.h"
#include "host/memory/file_reads.h"

#include <cstdio>
#include <filesystem>

#include "host/memory/regular_file.h"

#include "images/image_decode.h"
#include "host/memory/json_cursor.h"

namespace hostmodel {
namespace {

class MemoryBitmap : public Bitmap {
 public:
  MemoryBitmap(BitmapInfo info, int& outstanding) : info_(std::move(info)), outstanding_(outstanding) {
    ++outstanding_;
  }
  const BitmapInfo& Info() const override { return info_; }
  void DeleteThis() override {
    --outstanding_;
    delete this;
  }

 private:
  BitmapInfo info_;
  int& outstanding_;
};

std::string trimmed(const std::string& text, std::size_t begin, std::size_t end) {
  const char* blank = " \t\r";
  const std::size_t first = text.find_first_not_of(blank, begin);
  if (first == std::string::npos || first >= end) return {};
  const std::size_t last = text.find_last_not_of(blank, end - 1);
  return text.substr(first, last - first + 1);
}

}  // namespace

bool isImageList(const std::string& name) {
  return ztext::lowerExtension(name) == ".ifl";
}

bool readImageList(const std::string& path, std::vector<std::string>& entries, std::string* reason) {
  entries.clear();
  RegularFile file(path);
  std::string text(file.ok() ? file.size() : 0, '\0');
  if (!file.ok() || (!text.empty() && !file.readAll(text.data()))) {
    if (reason) *reason = file.reason();
    return false;
  }
  const std::filesystem::path dir = std::filesystem::path(path).parent_path();
  std::size_t line = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    const std::string entry = trimmed(text, begin, end);
    begin = end + 1;
    ++line;
    if (entry.empty() || entry.front() == ';') continue;
    if (entry.find('\0') != std::string::npos) {
      entries.clear();
      if (reason) *reason = "line " + std::to_string(line) + ": " + kNulInText;
      return false;
    }
    const std::filesystem::path p(entry);
    entries.push_back(p.is_absolute() || dir.empty() ? entry : (dir / p).lexically_normal().string());
  }
  return true;
}

MemoryBitmapManager::Stamp MemoryBitmapManager::stampOf(const struct stat& st) {
  return {st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec,
          st.st_ctim.tv_sec * 1000000000LL + st.st_ctim.tv_nsec};
}

void MemoryBitmapManager::noteProblem(const std::string& path, const std::string& what) {
  if (troubledFiles_.insert(path).second) problems_.push_back(path + ": " + what);
}

const std::vector<std::string>* MemoryBitmapManager::imageList(const std::string& path) {
  // A list met again is looked at, not opened, while it stays the same file.
  struct stat status {};
  if (list_.path == path && regularFileStatus(path, status).empty() && list_.stamp == stampOf(status))
    return &list_.entries;
  RegularFile file(path);
  list_ = {};
  std::string reason;
  if (!file.ok() || !readImageList(path, list_.entries, &reason)) {
    noteProblem(path, "cannot read the image list: " + (file.ok() ? reason : file.reason()));
    list_ = {};
    return nullptr;
  }
  noteFileRead(path);
  list_.path = path;
  list_.stamp = stampOf(file.status());
  return &list_.entries;
}

// Decodes the whole image, not just its header: a file cut short or damaged
// past its header must fail here, as it fails in the host.
bool MemoryBitmapManager::decode(const std::string& path, int& width, int& height) {
  const auto known = decoded_.find(path);
  if (known != decoded_.end()) {
    struct stat status {};
    if (regularFileStatus(path, status).empty() && known->second.stamp == stampOf(status)) {
      width = known->second.width;
      height = known->second.height;
      return true;
    }
  }
  RegularFile file(path);
  if (!file.ok()) {
    std::error_code ec;
    if (std::filesystem::exists(path, ec)) noteProblem(path, "cannot read the image: " + file.reason());
    return false;
  }
  const Stamp stamp = stampOf(file.status());
  std::string why;
  if (!decodeImage(path, width, height, why)) {
    noteProblem(path, "cannot read the image: it " + why);
    return false;
  }
  decoded_[path] = {stamp, width, height};
  return true;
}

std::string MemoryBitmapManager::resolve(const std::string& name) {
  if (name.empty()) return name;
  const TextureLookup found = search_.find(name);
  if (found.outcome == TextureLookup::Outcome::OtherExtension)
    note("WARNING: texture \"" + name + "\" not found; \"" + found.path +
         "\", the same name with another extension, is taken instead");
  return found.path;
}

void MemoryBitmapManager::note(const std::string& line) {
  if (noted_.insert(line).second) notes_.push_back(line);
}

// Says that the image is missing, and where it was looked for.
void MemoryBitmapManager::noteFailure(const std::string& name) {
  note("ERROR: texture \"" + name + "\" not found: " + describeSearch(name, search_.find(name)));
}

BMMRES MemoryBitmapManager::GetImageInfo(BitmapInfo* bi) {
  const std::string path = resolve(bi->Name());
  if (isImageList(path)) {
    const std::vector<std::string>* entries = imageList(path);
    if (entries == nullptr || entries->empty()) return BMMRES_ERRORTAKENCARE;
    bi->SetFirstFrame(0);
    bi->SetLastFrame(static_cast<int>(entries->size()) - 1);
    return BMMRES_SUCCESS;
  }
  RegularFile file(path);
  int width = 0, height = 0;
  if (!file.ok() || !imageInfo(path, width, height)) return BMMRES_ERRORTAKENCARE;
  noteFileRead(path);
  bi->SetFirstFrame(0);
  bi->SetLastFrame(0);
  bi->SetWidth(width);
  bi->SetHeight(height);
  return BMMRES_SUCCESS;
}

Bitmap* MemoryBitmapManager::Load(BitmapInfo* bi, BMMRES* status) {
  std::string path = resolve(bi->Name());
  const auto fail = [status] {
    if (status != nullptr) *status = BMMRES_ERRORTAKENCARE;
    return nullptr;
  };
  if (isImageList(path)) {
    const std::vector<std::string>* entries = imageList(path);
    const int entry = bi->CurrentFrame() - bi->First();
    if (entries != nullptr && entries->empty()) noteProblem(path, "cannot read the image list: it names no image");
    if (entries == nullptr || entry < 0 || entry >= static_cast<int>(entries->size())) return fail();
    path = (*entries)[static_cast<std::size_t>(entry)];
    // A list is not an image: a list naming a list has no frame to give.
    if (isImageList(path)) {
      noteProblem(path, "cannot read the image: an image list inside an image list");
      return fail();
    }
  }
  int width = 0, height = 0;
  if (!decode(path, width, height)) {
    // What was searched for is the host's to tell when nothing was found;
    // decode names a file that is there but cannot be used.
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) noteFailure(bi->Name());
    return fail();
  }
  noteFileRead(path);
  BitmapInfo loaded(path);
  loaded.SetWidth(width);
  loaded.SetHeight(height);
  if (status != nullptr) *status = BMMRES_SUCCESS;
  return new MemoryBitmap(std::move(loaded), outstanding_);
}

}  // namespace hostmodel
