// ZTExport.cfg: any bytes load into the record (defaults for what cannot be
// read), apply to an export and save again.
#include <cstdint>

#include "fuzz_support.h"
#include "host/memory/memory_host.h"
#include "options/apply_options.h"
#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto host = hostmodel::loadSceneFromString("{}", "", "empty.json");
  ztx_fuzz::writeScratch("ZTExport.cfg", data, size);
  OptionsDialog record(ztx_fuzz::scratchDir(), 30);
  SceneExporter exporter;
  exporter.host = host.get();
  applyDialogOptions(exporter, record);
  (void)record.saveOptions();
  return 0;
}
