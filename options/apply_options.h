// Deriving the export settings from the options dialog record, and the
// overrides of the additional configuration script.
#pragma once

class SceneExporter;
class OptionsDialog;

inline constexpr const char* kAdditionalConfigFileName = "ZTExportAdditional.cfg";
inline constexpr const char* kAdditionalConfigBlock = "animation";

// Copies the record into exporter.options, applies the derivation rules, sets
// startTime and sets the host's frame rate to the sample rate.
void applyDialogOptions(SceneExporter& exporter, const OptionsDialog& record);

// Reads block "animation" of ZTExportAdditional.cfg in the configuration
// directory, when the file exists, and applies its overrides. A failing
// script is logged and marks the export as failed; it never throws.
void readAdditionalConfig(SceneExporter& exporter);
