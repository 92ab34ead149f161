// Models in the formats artists hold, read into the in-memory host model.
// Each front end turns a file into a scene description (scene_builder.h);
// the scene loader then fills the host from it, so that an imported model and
// the scene file written from it with --write-scene export the same bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "importers/scene_builder.h"
#include "host/memory/memory_host.h"

namespace hostimport {

// What the model reader may take (docs/import.md). Zero: by the model's size.
struct ImportLimits {
  std::uint64_t memoryMiB = 0;
};

// The bounds the reader of `request` runs under: seconds of wall-clock time,
// and bytes of address space on top of what zt2export holds when it starts
// the reader.
struct ReaderBounds {
  double seconds = 0;
  std::uint64_t memory = 0;
};
ReaderBounds readerBounds(const std::string& path, const ImportLimits& limits);

// How zt2export opens its SCENE argument (openScene).
struct OpenOptions {
  std::string writeScene;                 // --write-scene, or empty
  std::string textureDir;                 // where textures held inside a model are written
  std::vector<std::string> texturePaths;  // --texture-path, in order
  bool dropMissingTextures = false;       // --missing-textures drop
  ImportLimits limits;                    // --memory-limit
};

ImportedScene import3ds(const ImportRequest& request);
// Through ZTExportModels.so (models_module.h), loaded on first use.
ImportedScene importAssimp(const ImportRequest& request);
// Loads ZTExportModels.so now, ahead of the first importAssimp.
void preloadModelsModule();

// True when `path` is one of our scene-description files rather than a model:
// a .json name, or text that opens with '{'.
bool isSceneDescription(const std::string& path);

// The front end for `path`: 3DS files (by their first chunk id, whatever the
// extension) go to the reader that keeps smoothing groups, all else to the
// general one.
ImportedScene importModel(const ImportRequest& request);

// The extensions the general front end reads (besides 3ds), separated by
// spaces, for --help; loads ZTExportModels.so to ask it.
std::string formatsHelp();

// The file name of the buffer written beside the scene file `scenePath` by
// --write-scene: "car.scene.json" keeps "car.bin".
std::string bufferNameFor(const std::string& scenePath);

// Starts the reader of the model `path` (nothing for a scene file) before the
// request is known, so that the readers' module loads while the caller
// prepares the export; the import of `path` that follows hands the reader its
// request. A reader that gets none ends with the caller.
void startReader(const std::string& path);

// What zt2export does with its SCENE argument: loads a scene file, or imports
// a model; with `writeScene` set, writes what was imported (or loaded) there
// as a scene file with its buffer beside it, and loads that. `textureDir`
// receives the textures a model holds inside it; the texture paths are
// searched for images, by the import and by the host. Throws std::exception
// naming the file on failure.
std::unique_ptr<hostmodel::MemoryHost> openScene(const std::string& path, const OpenOptions& options);

}  // namespace hostimport
