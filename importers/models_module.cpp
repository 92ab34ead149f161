// Loads ZTExportModels.so on first use and calls it (models_module.h).
#include "importers/models_module.h"

#include <dlfcn.h>

#include <mutex>
#include <new>

#include "format/output_files.h"
#include "host/memory/file_reads.h"
#include "images/image_decode.h"
#include "importers/importers.h"

namespace hostimport {
namespace {

struct ModelsModule {
  ZtxModelsReadFn read = nullptr;
  ZtxModelsFormatsFn formats = nullptr;
  std::string problem;  // why it could not be loaded
};

const ModelsModule& modelsModule() {
  static ModelsModule m;
  static std::once_flag once;
  std::call_once(once, [] {
    std::string path;
    void* handle = hostmodel::openCompanionModule(kModelsModuleName, path, m.problem);
    if (handle == nullptr) {
      if (m.problem.empty())
        m.problem = std::string(kModelsModuleName) + " was not found beside the program or the exporter module";
      return;
    }
    m.read = reinterpret_cast<ZtxModelsReadFn>(::dlsym(handle, "ztx_models_read"));
    m.formats = reinterpret_cast<ZtxModelsFormatsFn>(::dlsym(handle, "ztx_models_formats"));
    if (m.read == nullptr || m.formats == nullptr) {
      m.problem = path + " lacks its entry points";
      m.read = nullptr;
    }
  });
  return m;
}

}  // namespace

ImportedScene importAssimp(const ImportRequest& request) {
  const ModelsModule& m = modelsModule();
  if (m.read == nullptr) throw ImportError(request.path + ": the reader of this format cannot be loaded: " + m.problem);
  ModelsAnswer answer;
  m.read(request, flushBeforeCommit(), answer);
  for (const std::string& path : answer.filesRead) hostmodel::noteFileRead(path);
  for (const std::string& path : answer.filesWritten) hostmodel::noteFileWritten(path);
  if (answer.outOfMemory) throw std::bad_alloc();
  if (!answer.error.empty()) throw ImportError(answer.error);
  return std::move(answer.scene);
}

void preloadModelsModule() { (void)modelsModule(); }

std::string formatsHelp() {
  const ModelsModule& m = modelsModule();
  std::string formats;
  if (m.formats != nullptr) m.formats(formats);
  return formats;
}

}  // namespace hostimport
