#include "options/options_dialog.h"

#include <algorithm>
#include <cmath>

#include "format/memory_file.h"
#include "host/inhouse/exceptions.h"

namespace {

// Written in place of a flag that no longer means anything; kept so that the
// values after it stay where older readers expect them.
constexpr int kRetiredFlag = 1;

// What a float spinner makes of a stored value.
float spinnerValue(float stored, float fallback) {
  if (std::isnan(stored)) return fallback;
  return std::clamp(stored, kFloatSpinnerMin, kFloatSpinnerMax);
}

}  // namespace

OptionsDialog::OptionsDialog(const std::string& configDir, int hostFrameRate)
    : configFilePath(configDir + "/" + kOptionsFileName) {
  loadOptions();
  // The dialog always offers the scene's own rate, whatever the file held.
  sampleRate = hostFrameRate;
  sceneFrameRate = hostFrameRate;
}

OptionsDialog::~OptionsDialog() {
  if (!saveOnClose) return;
  // A destructor must not throw, and has nobody to tell of a failed save.
  try {
    (void)saveOptions();
  } catch (...) {
  }
}

bool OptionsDialog::loadOptions() {
  // Each value goes straight into its field, so a fault part way keeps what
  // was read before it and leaves every later field at its default.
  try {
    T_MemoryFile file(configFilePath.c_str(), AM_Read);

    int version = 0;
    file >> version;
    if (version > kOptionsFileVersion) return false;

    int retired = 0;
    file >> exportGeometry >> exportAnimation >> exportCameras >> exportEnvironment >> exportHelpers >>
        exportLights >> exportMaterials >> dumpInfo >> copyTextures >> retired >> loop >> loopInterpolation >>
        removeFloatingVertices >> removeHiddenObjects >> rescale >> sampleRate >> sceneFrameRate;
    // The floats pass through the spinners' limits as soon as they are read,
    // so a fault later in the file cannot leave one unchecked.
    float stored = 0.0f;
    file >> stored;
    rotationDelta = spinnerValue(stored, rotationDelta);
    file >> stored;
    rescaleFactor = spinnerValue(stored, rescaleFactor);

    int pathCount = 0;
    file >> pathCount;
    if (pathCount < 0) file.fail(file.tell(), "negative texture path count " + std::to_string(pathCount));
    // The file's history replaces any held before, so loading twice does not
    // list every path twice.
    texturePathHistory.clear();
    for (int i = 0; i < pathCount; ++i) {
      std::string path;
      file >> path;
      texturePathHistory.push_back(path);
      if (i == 0) texturePath = path;
    }

    if (version >= options_since::kRetainHierarchies) file >> retainHierarchies;
    if (version >= options_since::kPositionDelta) {
      file >> stored;
      positionDelta = spinnerValue(stored, positionDelta);
    }
    if (version >= options_since::kFrameToFrameInterpolation) file >> frameToFrameInterpolation;
    if (version >= options_since::kPivotAsMeshCenter) file >> pivotAsMeshCenter;
    if (version >= options_since::kMaintainMatrixScaling) file >> maintainMatrixScaling;
    if (version >= options_since::kSaveReferencesOnce) file >> saveReferencesOnce;
    if (version >= options_since::kDecreaseEndFrameByOne) file >> decreaseEndFrameByOne;
    if (version >= options_since::kUseGlobalAnimationRange) file >> useGlobalAnimationRange;
    if (version >= options_since::kExportSkinning) file >> exportSkinning;
    return true;
  } catch (const T_FileException_FileNotFound&) {
    return false;
  } catch (const T_Exception&) {
    // Truncated or damaged: whatever was read stands, the rest keeps its defaults.
    return false;
  }
}

Result<void> OptionsDialog::saveOptions() {
  T_MemoryFile file(8192);
  file << kOptionsFileVersion << exportGeometry << exportAnimation << exportCameras << exportEnvironment
       << exportHelpers << exportLights << exportMaterials << dumpInfo << copyTextures << kRetiredFlag << loop
       << loopInterpolation << removeFloatingVertices << removeHiddenObjects << rescale << sampleRate
       << sceneFrameRate << rotationDelta << rescaleFactor;

  const auto same = std::find(texturePathHistory.begin(), texturePathHistory.end(), texturePath);
  if (same != texturePathHistory.end()) texturePathHistory.erase(same);
  texturePathHistory.insert(texturePathHistory.begin(), texturePath);

  file << static_cast<int>(texturePathHistory.size());
  for (const std::string& path : texturePathHistory) file << (path.empty() ? std::string(".") : path);

  file << retainHierarchies << positionDelta << frameToFrameInterpolation << pivotAsMeshCenter
       << maintainMatrixScaling << saveReferencesOnce << decreaseEndFrameByOne << useGlobalAnimationRange
       << exportSkinning;

  return file.save(configFilePath.c_str());
}
