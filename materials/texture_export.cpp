#include "materials/texture_export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "format/output_files.h"
#include "host/bitmap.h"
#include "host/inhouse/system.h"
#include "host/material.h"
#include "materials/material_records.h"
#include "materials/zt_plugin_params.h"
#include "plugin/scene_exporter.h"

namespace {

struct BitmapRelease {
  void operator()(Bitmap* b) const { b->DeleteThis(); }
};
using LoadedBitmap = std::unique_ptr<Bitmap, BitmapRelease>;

std::string directoryOrCurrent(const std::string& dir) { return dir.empty() ? std::string(".") : dir; }

// Copies the bytes of `in` into `out`; false with errno set on failure.
bool copyBytes(int in, int out) {
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = ::read(in, buffer, sizeof buffer);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (!writeAll(out, buffer, static_cast<std::size_t>(n))) return false;
  }
}

// The whole file, or false with errno set.
bool readWhole(const std::string& path, std::string& bytes) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int error = errno;
      ::close(fd);
      errno = error;
      return n == 0;
    }
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
}

// True when both are regular files holding the same bytes.
bool sameBytes(const std::string& a, const std::string& b) {
  struct stat sa {}, sb {};
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0 || !S_ISREG(sa.st_mode) || !S_ISREG(sb.st_mode) ||
      sa.st_size != sb.st_size)
    return false;
  std::string x, y;
  return readWhole(a, x) && readWhole(b, y) && x == y;
}

enum class CopyOutcome { Staged, Present, Failed };

// Stages a copy of `source` for `destination`, which the scene file's save
// puts in place unless a file of that name has appeared by then: the copy
// exists only if the export succeeds. A destination that is there already is
// left as it is (Present), unless `replaceChanged` and its bytes differ from
// the source's: a replacement is staged then. `why` receives the reason of a
// failure.
CopyOutcome stageCopy(FileStaging& staging, const std::string& source, const std::string& destination,
                      bool replaceChanged, std::string& why) {
  struct stat st {};
  if (::lstat(destination.c_str(), &st) == 0) {
    if (!replaceChanged || sameFile(source, destination) || sameBytes(source, destination))
      return CopyOutcome::Present;
    std::string bytes;
    if (!readWhole(source, bytes)) {
      why = std::strerror(errno);
      return CopyOutcome::Failed;
    }
    why = staging.stageReplacement(destination, {{bytes.data(), bytes.size()}});
    return why.empty() ? CopyOutcome::Staged : CopyOutcome::Failed;
  }
  const std::size_t slash = destination.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : destination.substr(0, slash);
  const std::string name = slash == std::string::npos ? destination : destination.substr(slash + 1);
  auto failed = [&why](int error) {
    why = std::strerror(error);
    return CopyOutcome::Failed;
  };
  const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return failed(errno);
  const std::string stagingDir = staging.newFilesDirectory(dir, why);
  if (stagingDir.empty()) {
    ::close(in);
    return CopyOutcome::Failed;
  }
  // Each destination is staged once per export (CopiedTextureSet), so the
  // staged name is free; the exclusive create makes sure of it.
  const std::string staged = stagingDir + "/" + name;
  const int out = ::open(staged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (out < 0) {
    const int error = errno;
    ::close(in);
    return failed(error);
  }
  int error = copyBytes(in, out) && (!flushBeforeCommit() || ::fsync(out) == 0) ? 0 : errno;
  ::close(in);
  if (::close(out) != 0 && error == 0) error = errno;
  if (error != 0) ::unlink(staged.c_str());
  return error == 0 ? CopyOutcome::Staged : failed(error);
}

}  // namespace

std::string texturePathJoin(const std::string& directory, const std::string& fileName) {
  if (directory.empty()) return fileName;
  return directory + "/" + fileName;
}

void copyTexture(SceneExporter& exporter, const std::string& destination, const std::string& source) {
  // A dry run neither makes the directory nor copies, and says nothing of either.
  if (File->writesSuppressed()) return;
  const std::string& dir = exporter.textureCopyDirectory;
  if (!File->isDirectory(directoryOrCurrent(dir))) {
    // Whether it worked shows in the copy below. A directory made for a run
    // that then fails goes again with the run's other files.
    if (::mkdir(dir.c_str(), 0777) == 0) exporter.staging.createdDirectory(dir);
    exporter.logMessage("INFO: Directory \"%s\" created for textures.", dir.c_str());
  }
  std::string why;
  const CopyOutcome outcome =
      stageCopy(exporter.staging, source, destination, exporter.host->ChangedTextureCopiesReplaced(), why);
  switch (outcome) {
    case CopyOutcome::Staged:
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
  for (int f = 0; f < frameCount; ++f) {
    BitmapInfo frame(image);
    frame.SetCurrentFrame(f);
    BMMRES status = BMMRES_ERRORTAKENCARE;
    const LoadedBitmap bitmap(manager.Load(&frame, &status));
    if (status != BMMRES_SUCCESS || !bitmap) {
      exporter.logError("ERROR: Couldn't open texture \"%s\"", frame.Name().c_str());
      continue;
    }
    const std::string fileName = bitmap->Info().Filename();
    record.fileNames.push_back(fileName);
    if (exporter.options.copyTextures) {
      const std::string destination = texturePathJoin(exporter.textureCopyDirectory, fileName);
      if (exporter.copiedTextureSet.insert(destination).second)
        copyTexture(exporter, destination, bitmap->Info().Name());
    }
  }
  if (params.mode >= 0 && params.mode <= 4) record.textureMode = params.mode;
  record.textureValue = params.valueFlag == 1 ? params.value : 0;
}
