// The entry points of ZTExportModels.so, the front end built on the import
// library (import_assimp.cpp). The library takes several milliseconds to load
// and a scene file or a 3DS model never needs it, so it lives in a module of
// its own, loaded by the reader child that reads such a model (or to list
// the formats it reads). Module and program come from one build: the request
// and the answer cross as the C++ types they are; exceptions do not cross.
#pragma once

#include <string>
#include <vector>

#include "importers/scene_builder.h"

namespace hostimport {

inline constexpr const char* kModelsModuleName = "ZTExportModels.so";

// What a read answers. The module's record of the files it read and wrote is
// its own: the program notes them again in its record.
struct ModelsAnswer {
  ImportedScene scene;
  std::string error;  // empty on success
  bool outOfMemory = false;
  std::vector<std::string> filesRead;
  std::vector<std::string> filesWritten;
};

}  // namespace hostimport

extern "C" {
// Reads request.path into answer.scene; files are written flushed when `flush`.
using ZtxModelsReadFn = void (*)(const hostimport::ImportRequest& request, bool flush,
                                 hostimport::ModelsAnswer& answer);
// The extensions the module reads (besides 3ds), separated by spaces.
using ZtxModelsFormatsFn = void (*)(std::string& formats);
}
