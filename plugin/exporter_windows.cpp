#include "plugin/exporter_windows.h"

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>

namespace {

struct LoadedWindows {
  ExporterWindows* windows = nullptr;
  std::string why;
};

LoadedWindows load() {
  // The windows library sits beside the file that holds this code: the
  // module, or a program that links the exporter in.
  Dl_info self{};
  if (dladdr(reinterpret_cast<void*>(&loadExporterWindows), &self) == 0 || !self.dli_fname)
    return {nullptr, "cannot tell where the exporter module lies"};
  const std::string path =
      (std::filesystem::path(self.dli_fname).parent_path() / kExporterWindowsLibrary).string();
  // Kept loaded for good: the toolkit does not survive being unloaded.
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!library) return {nullptr, dlerror()};
  auto entry = reinterpret_cast<ExporterWindowsEntryFn>(dlsym(library, kExporterWindowsEntry));
  if (!entry) return {nullptr, path + " has no " + kExporterWindowsEntry};
  return {entry(), {}};
}

}  // namespace

ExporterWindows* loadExporterWindows(std::string& why) {
  static const LoadedWindows loaded = load();
  if (!loaded.windows) {
    why = loaded.why;
    return nullptr;
  }
  why = loaded.windows->unavailableReason();
  return why.empty() ? loaded.windows : nullptr;
}

void reportWindowsUnavailable(const char* what, const std::string& why) {
  std::fprintf(stderr, "ZTExport: cannot show %s: %s\n", what, why.c_str());
}
