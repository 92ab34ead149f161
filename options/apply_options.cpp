#include "options/apply_options.h"

#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"

// Placeholder until the options rules land.
void applyDialogOptions(SceneExporter& exporter, const OptionsDialog& record) {
  exporter.options.sampleRate = record.sampleRate;
  exporter.host->SetFrameRate(record.sampleRate);
}

void readAdditionalConfig(SceneExporter&) {}
