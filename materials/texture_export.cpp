#include "materials/texture_export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>

#include "format/output_files.h"
#include "host/bitmap.h"
#include "host/inhouse/system.h"
#include "host/material.h"
#include "materials/material_export.h"
#include "materials/material_records.h"
#include "materials/zt_plugin_params.h"
#include "plugin/scene_exporter.h"

namespace {

struct BitmapRelease {
  void operator()(Bitmap* b) const { b->DeleteThis(); }
};
using LoadedBitmap = std::unique_ptr<Bitmap, BitmapRelease>;

// An open file descriptor, closed when it goes.
class OpenFile {
 public:
  explicit OpenFile(int fd) : fd_(fd) {}
  ~OpenFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

// The whole file the descriptor reads from its start, or false with errno set.
bool readWhole(int fd, std::string& bytes) {
  if (::lseek(fd, 0, SEEK_SET) < 0) return false;
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
}

bool readWhole(const std::string& path, std::string& bytes) {
  const OpenFile file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file.fd() >= 0 && readWhole(file.fd(), bytes);
}

// True when `name` in `dir` (links not followed) is a regular file holding
// the bytes `source` reads.
bool holdsSameBytes(const OutputDirectory& dir, const std::string& name, int source) {
  const OpenFile copy(::openat(dir.fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat sc {}, ss {};
  if (copy.fd() < 0 || ::fstat(copy.fd(), &sc) != 0 || ::fstat(source, &ss) != 0 || !S_ISREG(sc.st_mode) ||
      sc.st_size != ss.st_size)
    return false;
  if (sc.st_dev == ss.st_dev && sc.st_ino == ss.st_ino) return true;
  std::string x, y;
  return readWhole(copy.fd(), x) && readWhole(source, y) && x == y;
}

// 64-bit FNV-1a: a short, stable name for an image's bytes.
std::uint64_t contentHash(const std::string& bytes) {
  std::uint64_t h = 1469598103934665603ull;
  for (unsigned char c : bytes) h = (h ^ c) * 1099511628211ull;
  return h;
}

enum class CopyOutcome { Staged, Present, Failed };

// Stages a copy of `source` as `name` in `dir`, which the scene file's save
// puts in place unless a file of that name has appeared by then: the copy
// exists only if the export succeeds. A name that is there already is left
// as it is (Present), unless `replaceChanged` and it is not a regular file
// with the source's bytes: a replacement is staged then, which takes the
// name's place by a rename. `why` receives the reason of a failure.
CopyOutcome stageCopy(FileStaging& staging, const std::string& source, const OutputDirectory& dir,
                      const std::string& name, bool replaceChanged, std::string& why) {
  const OpenFile in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (in.fd() < 0) {
    why = std::strerror(errno);
    return CopyOutcome::Failed;
  }
  struct stat st {};
  if (::fstatat(dir.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
    if (!replaceChanged || holdsSameBytes(dir, name, in.fd())) return CopyOutcome::Present;
    if (::lseek(in.fd(), 0, SEEK_SET) < 0) {
      why = std::strerror(errno);
      return CopyOutcome::Failed;
    }
    why = staging.stageReplacementIn(dir, name, in.fd()).message();
  } else {
    why = staging.stageNewFile(dir, name, in.fd()).message();
  }
  return why.empty() ? CopyOutcome::Staged : CopyOutcome::Failed;
}

// Opens the texture copy directory once per export, creating its last level
// when missing (its parent must exist). Refuses a directory that ".." or a
// link puts outside the exported file's own, unless the host allows copies
// outside. Empty on success, else the reason.
std::string openCopyDirectory(SceneExporter& exporter) {
  const std::string& dir = exporter.textureCopyDirectory;
  const std::string copyPart = exporter.options.texturePath.substr(0, exporter.options.texturePath.find(';'));
  std::vector<std::string> made;
  std::string error;
  if (exporter.host->TextureCopiesOutsideAllowed()) {
    // The user allowed any place: the path is taken as the system resolves it.
    struct stat st {};
    if (::stat(dir.empty() ? "." : dir.c_str(), &st) != 0) {
      OutputDirectory parent;
      const std::size_t slash = dir.find_last_of('/');
      error = parent.open(slash == std::string::npos ? "." : dir.substr(0, slash + (slash == 0 ? 1 : 0))).message();
      if (error.empty())
        error = parent.openBeneath(dir.substr(slash == std::string::npos ? 0 : slash + 1), true,
                                   exporter.textureDirectory, &made).message();
      if (error.empty()) made = {dir};
    } else {
      error = exporter.textureDirectory.open(dir).message();
    }
  } else {
    OutputDirectory output, parent;
    error = output.open(exporter.writtenPath.empty() ? "." : exporter.writtenPath).message();
    // The path is joined to the exported file's folder whatever it starts with,
    // as the exporter's rules join them: "/maps" is OUT/maps.
    std::string parentPart = copyPart.substr(std::min(copyPart.find_first_not_of('/'), copyPart.size())), last;
    while (!parentPart.empty() && parentPart.back() == '/') parentPart.pop_back();
    const std::size_t slash = parentPart.find_last_of('/');
    last = slash == std::string::npos ? parentPart : parentPart.substr(slash + 1);
    parentPart = slash == std::string::npos ? std::string() : parentPart.substr(0, slash);
    if (error.empty()) error = output.openBeneath(parentPart, false, parent).message();
    if (error.empty()) error = parent.openBeneath(last, true, exporter.textureDirectory, &made).message();
    if (!made.empty()) made = {dir};
  }
  for (const std::string& folder : made) {
    // A directory made for a run that then fails goes again with the run's other files.
    exporter.staging.createdDirectory(folder);
    exporter.logMessage("INFO: Directory \"%s\" created for textures.", dir.c_str());
  }
  return error;
}

}  // namespace

std::string texturePathJoin(const std::string& directory, const std::string& fileName) {
  if (directory.empty()) return fileName;
  return directory + "/" + fileName;
}

std::string contentNamedCopy(const std::string& fileName, const std::string& source) {
  std::string bytes;
  if (!readWhole(source, bytes)) return fileName;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%08" PRIx64, static_cast<std::uint64_t>(contentHash(bytes) & 0xffffffffu));
  const std::size_t dot = fileName.find_last_of('.');
  if (dot == std::string::npos || dot == 0) return fileName + "." + digits;
  return fileName.substr(0, dot) + "." + digits + fileName.substr(dot);
}

void copyTexture(SceneExporter& exporter, const std::string& destination, const std::string& source) {
  // A dry run neither makes the directory nor copies, and says nothing of either.
  if (File->writesSuppressed()) return;
  const std::size_t slash = destination.find_last_of('/');
  const std::string name = slash == std::string::npos ? destination : destination.substr(slash + 1);
  if (!exporter.textureDirectory.isOpen()) {
    if (const std::string why = openCopyDirectory(exporter); !why.empty()) {
      exporter.logError("ERROR: Couldn't copy texture \"%s\" to \"%s\": %s.", source.c_str(), destination.c_str(),
                        why.c_str());
      return;
    }
  }
  std::string why;
  const CopyOutcome outcome = stageCopy(exporter.staging, source, exporter.textureDirectory, name,
                                        exporter.host->ChangedTextureCopiesReplaced(), why);
  switch (outcome) {
    case CopyOutcome::Staged:
      exporter.stagedCopyLines.emplace_back(exporter.infoLog.lines().size(), source, destination);
      exporter.logMessage("INFO: Texture \"%s\" copied to \"%s\".", source.c_str(), destination.c_str());
      break;
    case CopyOutcome::Present:
      exporter.logMessage("INFO: Texture \"%s\" already exists - file not overwritten.", destination.c_str());
      break;
    case CopyOutcome::Failed:
      exporter.logError("ERROR: Couldn't copy texture \"%s\" to \"%s\": %s.", source.c_str(), destination.c_str(),
                        why.c_str());
      return;
  }
  // The image itself, when the copy would land on it, is read, not written.
  if (outcome == CopyOutcome::Staged || !sameFile(source, destination)) exporter.host->TextureCopyUsed(destination);
}

void exportTexture(SceneExporter& exporter, TextureRecord& record, const Texmap& map) {
  record.name = map.GetName();
  const ZTTextureParams params = readZTTextureParams(map);
  if (params.mapFileName.empty()) {
    exporter.logMessage("WARNING: Texture \"%s\" has no map assigned to it.", record.name.c_str());
    return;
  }
  BitmapManager& manager = *exporter.host->GetBitmapManager();
  BitmapInfo image(params.mapFileName);
  // Its result is not needed: an image that cannot be described keeps one
  // frame, and the load of that frame reports the problem.
  manager.GetImageInfo(&image);
  const int frameCount = image.Last() - image.First() + 1;
  if (frameCount > 1) {
    record.sequenceSwitch1 = params.sequenceSwitch1;
    record.sequenceSwitch2 = params.sequenceSwitch2;
    record.sequenceValue1 = params.sequenceValue1;
    record.sequenceValue2 = params.sequenceValue2;
    if (params.sequenceMode >= 0 && params.sequenceMode <= 2) record.sequenceMode = params.sequenceMode;
  }
  const bool namedByContent = exporter.options.copyTextures && exporter.host->TextureCopiesNamedByContent();
  for (int f = 0; f < frameCount; ++f) {
    BitmapInfo frame(image);
    frame.SetCurrentFrame(f);
    BMMRES status = BMMRES_ERRORTAKENCARE;
    const LoadedBitmap bitmap(manager.Load(&frame, &status));
    if (status != BMMRES_SUCCESS || !bitmap) {
      exporter.logError("ERROR: Couldn't open texture \"%s\"", frame.Name().c_str());
      continue;
    }
    const std::string source = bitmap->Info().Name();
    // Named by content, the scene file names the copy it relies on, so two
    // images of one name never take each other's place.
    const std::string fileName =
        namedByContent ? contentNamedCopy(bitmap->Info().Filename(), source) : bitmap->Info().Filename();
    record.fileNames.push_back(fileName);
    if (!exporter.options.copyTextures) continue;
    const std::string destination = texturePathJoin(exporter.textureCopyDirectory, fileName);
    const auto [known, isNew] = exporter.copiedTextureSet.emplace(destination, source);
    if (isNew) {
      copyTexture(exporter, destination, source);
    } else if (known->second != source && !sameFile(known->second, source)) {
      // Two images for one copy: whichever came second would silently stand
      // for the first in every material that names it.
      std::string a, b;
      if (!readWhole(known->second, a) || !readWhole(source, b) || a != b)
        exporter.logError("ERROR: Textures \"%s\" and \"%s\" would both be copied to \"%s\"; give one of them "
                          "another name, or name the copies by their content.",
                          known->second.c_str(), source.c_str(), destination.c_str());
    }
  }
  if (params.mode >= 0 && params.mode <= 4) record.textureMode = params.mode;
  record.textureValue = params.valueFlag == 1 ? params.value : 0;
}
