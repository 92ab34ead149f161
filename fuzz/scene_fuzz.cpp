// Scene files: the loader must refuse any text with a SceneLoadError; a scene
// it accepts is exported with every option on, and the exporter must neither
// crash nor throw on it.
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "host/inhouse/exceptions.h"
#include "host/memory/memory_host.h"
#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::unique_ptr<hostmodel::MemoryHost> host;
  try {
    host = hostmodel::loadSceneFromString(std::string(reinterpret_cast<const char*>(data), size),
                                          ztx_fuzz::scratchDir(), "fuzz.json");
  } catch (const hostmodel::SceneLoadError&) {
    return 0;
  }
  host->setConfigDir(ztx_fuzz::scratchDir());
  SceneExporter exporter;
  // Skinning on makes every node without Physique an error that stops the
  // export before the converters: only a scene that has skin gets it.
  const bool skin = std::string_view(reinterpret_cast<const char*>(data), size).find("physique") != std::string_view::npos;
  exporter.optionsRecordEditor = [skin](OptionsDialog& record) { record.exportSkinning = skin; };
  const std::string output = ztx_fuzz::scratchDir() + "/out.zt2";
  try {
    exporter.DoExport(output.c_str(), host.get(), true);
  } catch (const T_Exception&) {
    // The in-house layer's own failures (a chunk past 4 GiB, exhausted memory) are reports, not faults.
  }
  return 0;
}
