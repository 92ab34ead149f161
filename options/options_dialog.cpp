#include "options/options_dialog.h"

// Placeholder until the configuration file lands.
OptionsDialog::OptionsDialog(const std::string& configDir, int hostFrameRate)
    : sampleRate(hostFrameRate), sceneFrameRate(hostFrameRate), configFilePath(configDir + "/" + kOptionsFileName) {}
OptionsDialog::~OptionsDialog() = default;
bool OptionsDialog::loadOptions() { return false; }
void OptionsDialog::saveOptions() {}
