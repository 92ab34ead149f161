#include "host/memory/memory_bitmaps.h"

#include "host/memory/file_reads.h"

#include <stb/stb_image.h>

#include <filesystem>
#include <fstream>

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

// Decodes the whole image, not just its header: a file cut short or damaged
// past its header must fail here, as it fails in the host.
bool decodes(const std::string& path, int& width, int& height) {
  int channels = 0;
  unsigned char* pixels = stbi_load(path.c_str(), &width, &height, &channels, 0);
  if (pixels == nullptr) return false;
  stbi_image_free(pixels);
  noteFileRead(path);
  return true;
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

std::string MemoryBitmapManager::resolve(const std::string& name) const {
  if (name.empty() || baseDir_.empty() || std::filesystem::path(name).is_absolute()) return name;
  return (std::filesystem::path(baseDir_) / name).lexically_normal().string();
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
  int width = 0, height = 0, channels = 0;
  if (stbi_info(path.c_str(), &width, &height, &channels) == 0) return BMMRES_ERRORTAKENCARE;
  noteFileRead(path);
  bi->SetFirstFrame(0);
  bi->SetLastFrame(0);
  bi->SetWidth(width);
  bi->SetHeight(height);
  return BMMRES_SUCCESS;
}

Bitmap* MemoryBitmapManager::Load(BitmapInfo* bi, BMMRES* status) {
  std::string path = resolve(bi->Name());
  if (isImageList(path)) {
    std::vector<std::string> entries;
    const int entry = bi->CurrentFrame() - bi->First();
    if (!readImageList(path, entries) || entry < 0 || entry >= static_cast<int>(entries.size())) {
      if (status != nullptr) *status = BMMRES_ERRORTAKENCARE;
      return nullptr;
    }
    path = entries[static_cast<std::size_t>(entry)];
  }
  BitmapInfo loaded(path);
  int width = 0, height = 0;
  if (isImageList(path) || !decodes(path, width, height)) {
    if (status != nullptr) *status = BMMRES_ERRORTAKENCARE;
    return nullptr;
  }
  loaded.SetWidth(width);
  loaded.SetHeight(height);
  if (status != nullptr) *status = BMMRES_SUCCESS;
  return new MemoryBitmap(std::move(loaded), outstanding_);
}

}  // namespace hostmodel
