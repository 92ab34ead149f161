#include "materials/texture_export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "format/file_replace.h"
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

// Stages a copy of `source` for `destination`, which the scene file's save
// puts in place unless a file of that name has appeared by then: the copy
// exists only if the export succeeds. 0 on success, EEXIST when the
// destination is there already, otherwise the error number of the step that
// failed.
int stageCopyWithoutOverwrite(FileStaging& staging, const std::string& source, const std::string& destination) {
  struct stat st {};
  if (::lstat(destination.c_str(), &st) == 0) return EEXIST;
  const std::size_t slash = destination.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : destination.substr(0, slash);
  const std::string name = slash == std::string::npos ? destination : destination.substr(slash + 1);
  const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return errno;
  std::string why;
  const std::string stagingDir = staging.newFilesDirectory(dir, why);
  if (stagingDir.empty()) {
    ::close(in);
    return errno != 0 ? errno : EIO;
  }
  // Each destination is staged once per export (CopiedTextureSet), so the
  // staged name is free; the exclusive create makes sure of it.
  const std::string staged = stagingDir + "/" + name;
  const int out = ::open(staged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (out < 0) {
    const int error = errno;
    ::close(in);
    return error;
  }
  int error = copyBytes(in, out) && ::fsync(out) == 0 ? 0 : errno;
  ::close(in);
  if (::close(out) != 0 && error == 0) error = errno;
  if (error != 0) ::unlink(staged.c_str());
  return error;
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
  const int error = stageCopyWithoutOverwrite(exporter.staging, source, destination);
  if (error == 0)
    exporter.logMessage("INFO: Texture \"%s\" copied to \"%s\".", source.c_str(), destination.c_str());
  else if (error == EEXIST)
    exporter.logMessage("INFO: Texture \"%s\" already exists - file not overwritten.", destination.c_str());
  else
    exporter.logError("ERROR: Couldn't copy texture \"%s\" to \"%s\": %s.", source.c_str(), destination.c_str(),
                      std::strerror(error));
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
