// The exporter module as the host meets it: loaded at run time, checked, and
// reached only through its four entry points and the class descriptor.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "host/scene_export.h"

// One line saying why the module cannot be used.
class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class ExporterModule {
 public:
  // Loads the module at `path` and checks its version and its class 0.
  // Throws ModuleError when the file is missing, is no module, or is a
  // module of another version.
  explicit ExporterModule(const std::string& path);
  ExporterModule(const ExporterModule&) = delete;
  ExporterModule& operator=(const ExporterModule&) = delete;

  // LibDescription().
  std::string description() const;
  // A new exporter of class 0, checked to write "zt2" files.
  std::unique_ptr<SceneExport> createExporter() const;

 private:
  std::string path_;
  LibDescriptionFn libDescription_ = nullptr;
  ClassDesc* classDesc_ = nullptr;
};

// ZTExport.dle beside the running program.
std::string defaultModulePath();
