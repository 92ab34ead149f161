// Scene files: the loader must refuse any text with a SceneLoadError; a scene
// it accepts is exported, and the exporter must neither crash nor throw on
// it. What an export without error writes must pass zt2dump's validation,
// as every file zt2export writes with exit 0 does.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "host/inhouse/exceptions.h"
#include "host/memory/memory_host.h"
#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"
#include "dump/reader_tree.h"
#include "dump/validate.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::unique_ptr<hostmodel::MemoryHost> host;
  try {
    host = hostmodel::loadSceneFromString(text, ztx_fuzz::scratchDir(), "fuzz.json");
  } catch (const hostmodel::SceneLoadError&) {
    return 0;
  }
  host->setConfigDir(ztx_fuzz::scratchDir());
  SceneExporter exporter;
  // Skinning on makes every node without Physique an error that stops the
  // export before the converters: only a scene that has skin gets it.
  const bool skin = text.find("physique") != std::string::npos;
  exporter.optionsRecordEditor = [skin](OptionsDialog& record) { record.exportSkinning = skin; };
  const std::string output = ztx_fuzz::scratchDir() + "/out.zt2";
  std::filesystem::remove(output);
  std::filesystem::remove(ztx_fuzz::scratchDir() + "/out.skd");
  try {
    exporter.DoExport(output.c_str(), host.get(), true);
  } catch (const T_Exception&) {
    // The in-house layer's own failures (a chunk past 4 GiB, exhausted memory) are reports, not faults.
    return 0;
  }
  if (exporter.hasError() || !std::filesystem::exists(output)) return 0;
  try {
    zt2dump::validateFile(zt2dump::loadFile(output));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "an export without error wrote a file that does not validate: %s\n", e.what());
    std::abort();
  }
  return 0;
}
