#include "driver/exporter_module.h"

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>

namespace {

constexpr unsigned long kHostSdkVersion = 0x13EC0800;  // release 5100, interface 8, revision 0
constexpr const char* kModuleFileName = "ZTExport.dle";
constexpr const char* kExtension = "zt2";

std::string hex(unsigned long value) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%08lX", value);
  return text;
}

}  // namespace

ExporterModule::ExporterModule(const std::string& path) : path_(path) {
  // Never closed: exporters and the strings they hand out live in it until the program ends.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) throw ModuleError(std::string("cannot load the exporter module: ") + dlerror());

  auto symbol = [&](const char* name) {
    void* address = dlsym(handle, name);
    if (!address) throw ModuleError(path + " is not an exporter module (it has no " + name + ")");
    return address;
  };
  libDescription_ = reinterpret_cast<LibDescriptionFn>(symbol("LibDescription"));
  auto libNumberClasses = reinterpret_cast<LibNumberClassesFn>(symbol("LibNumberClasses"));
  auto libClassDesc = reinterpret_cast<LibClassDescFn>(symbol("LibClassDesc"));
  auto libVersion = reinterpret_cast<LibVersionFn>(symbol("LibVersion"));

  // Checked before anything else is called: the interfaces of another
  // version need not have the slots this host calls.
  if (const unsigned long version = libVersion(); version != kHostSdkVersion)
    throw ModuleError(path + " is a module of another version (" + hex(version) + "; this host takes " +
                      hex(kHostSdkVersion) + ")");
  if (libNumberClasses() < 1 || !(classDesc_ = libClassDesc(0)) ||
      classDesc_->SuperClassID() != SCENE_EXPORT_CLASS_ID)
    throw ModuleError(path + " offers no scene exporter as its class 0");
}

std::string ExporterModule::description() const { return libDescription_(); }

std::unique_ptr<SceneExport> ExporterModule::createExporter() const {
  std::unique_ptr<SceneExport> exporter(static_cast<SceneExport*>(classDesc_->Create(FALSE)));
  if (!exporter) throw ModuleError(path_ + " created no exporter");
  bool writesZt2 = false;
  for (int i = 0; i < exporter->ExtCount(); ++i)
    if (std::string(exporter->Ext(i)) == kExtension) writesZt2 = true;
  if (!writesZt2) throw ModuleError(path_ + ": its exporter does not write ." + kExtension + " files");
  return exporter;
}

std::string defaultModulePath() {
  std::error_code ec;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  const std::filesystem::path dir = ec ? std::filesystem::path(".") : self.parent_path();
  const std::filesystem::path beside = dir / kModuleFileName;
  // Installed, the program is in bin/ and the module in lib/ztexport/ (with
  // the windows library beside it); in the build tree they lie side by side.
  const std::filesystem::path installed = dir / ".." / ZTX_INSTALL_LIBDIR / "ztexport" / kModuleFileName;
  if (!std::filesystem::exists(beside, ec) && std::filesystem::exists(installed, ec))
    return installed.lexically_normal().string();
  return beside.string();
}
