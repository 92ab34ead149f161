// ZTExportAdditional.cfg: any text either applies or is reported in the info
// log; nothing escapes readAdditionalConfig.
#include <cstdint>

#include "fuzz_support.h"
#include "host/memory/memory_host.h"
#include "options/apply_options.h"
#include "plugin/scene_exporter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto host = [] {
    auto h = hostmodel::loadSceneFromString(R"({"animationRange": [0, 100]})", "", "range.json");
    h->setConfigDir(ztx_fuzz::scratchDir());
    return h;
  }();
  ztx_fuzz::writeScratch("ZTExportAdditional.cfg", data, size);
  SceneExporter exporter;
  exporter.host = host.get();
  exporter.animationRange = host->GetAnimRange();
  exporter.ticksPerFrame = host->GetTicksPerFrame();
  exporter.options.endFrame = 100;
  readAdditionalConfig(exporter);
  return 0;
}
