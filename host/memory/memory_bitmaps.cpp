#include "host/memory/memory_bitmaps.h"

#include "host/memory/file_reads.h"

#include <filesystem>
#include <fstream>

#include "host/memory/image_decode.h"

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

std::string trimmed(const std::string& line) {
  const std::size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos) return {};
  const std::size_t last = line.find_last_not_of(" \t\r");
  return line.substr(first, last - first + 1);
}

}  // namespace

bool isImageList(const std::string& name) {
  std::string ext = std::filesystem::path(name).extension().string();
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".ifl";
}

bool readImageList(const std::string& path, std::vector<std::string>& entries) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  noteFileRead(path);
  const std::filesystem::path dir = std::filesystem::path(path).parent_path();
  entries.clear();
  std::string line;
  while (std::getline(in, line)) {
    const std::string entry = trimmed(line);
    if (entry.empty() || entry.front() == ';') continue;
    const std::filesystem::path p(entry);
    entries.push_back(p.is_absolute() || dir.empty() ? entry : (dir / p).lexically_normal().string());
  }
  return !in.bad();
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

// Says that the image is missing, and where it was looked for, or why the
// file found cannot be used (`why` completes "PATH ...").
void MemoryBitmapManager::noteFailure(const std::string& name, const std::string& path, const std::string& why) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) {
    note("ERROR: texture \"" + name + "\" not found: " + describeSearch(name, search_.find(name)));
    return;
  }
  note("ERROR: texture \"" + name + "\": \"" + path + "\" " + why);
}

BMMRES MemoryBitmapManager::GetImageInfo(BitmapInfo* bi) {
  const std::string path = resolve(bi->Name());
  if (isImageList(path)) {
    std::vector<std::string> entries;
    if (!readImageList(path, entries) || entries.empty()) return BMMRES_ERRORTAKENCARE;
    bi->SetFirstFrame(0);
    bi->SetLastFrame(static_cast<int>(entries.size()) - 1);
    return BMMRES_SUCCESS;
  }
  int width = 0, height = 0;
  if (!imageInfo(path, width, height)) return BMMRES_ERRORTAKENCARE;
  noteFileRead(path);
  bi->SetFirstFrame(0);
  bi->SetLastFrame(0);
  bi->SetWidth(width);
  bi->SetHeight(height);
  return BMMRES_SUCCESS;
}

Bitmap* MemoryBitmapManager::Load(BitmapInfo* bi, BMMRES* status) {
  std::string path = resolve(bi->Name());
  bool listEntry = false;
  if (isImageList(path)) {
    std::vector<std::string> entries;
    const int entry = bi->CurrentFrame() - bi->First();
    if (!readImageList(path, entries) || entry < 0 || entry >= static_cast<int>(entries.size())) {
      if (entries.empty()) noteFailure(bi->Name(), path, "is an image list that names no image");
      if (status != nullptr) *status = BMMRES_ERRORTAKENCARE;
      return nullptr;
    }
    path = entries[static_cast<std::size_t>(entry)];
    listEntry = true;
  }
  BitmapInfo loaded(path);
  int width = 0, height = 0;
  std::string why = "is an image list, which a list cannot name";
  if (isImageList(path) || !decodeImage(path, width, height, why)) {
    noteFailure(listEntry ? path : bi->Name(), path, why);
    if (status != nullptr) *status = BMMRES_ERRORTAKENCARE;
    return nullptr;
  }
  noteFileRead(path);
  loaded.SetWidth(width);
  loaded.SetHeight(height);
  if (status != nullptr) *status = BMMRES_SUCCESS;
  return new MemoryBitmap(std::move(loaded), outstanding_);
}

}  // namespace hostmodel
