// The options dialog record: every option as the dialog edits it (booleans as
// 0/1 ints), loaded from ZTExport.cfg when it is created and saved there when
// it is discarded after the dialog closed with OK.
#pragma once

#include <string>
#include <vector>

#include "host/max_types.h"

inline constexpr int kOptionsFileVersion = 10;
inline constexpr const char* kOptionsFileName = "ZTExport.cfg";

class OptionsDialog {
 public:
  // Sets the defaults, builds the file path from `configDir`, loads the file,
  // then sets sampleRate and sceneFrameRate to `hostFrameRate`.
  OptionsDialog(const std::string& configDir, int hostFrameRate);
  // Saves the file when saveOnClose is set.
  ~OptionsDialog();
  OptionsDialog(const OptionsDialog&) = delete;
  OptionsDialog& operator=(const OptionsDialog&) = delete;

  // True when the file was read; false when it is missing or of a newer
  // version. Values a truncated or corrupt file cannot give keep their defaults.
  bool loadOptions();
  // Writes the whole file (version 10), updating the texture path history.
  // The result is not reported.
  void saveOptions();

  int exportGeometry = 1;
  int exportSkinning = 1;
  int exportAnimation = 1;
  int exportCameras = 1;
  int exportLights = 1;
  int exportMaterials = 1;
  int exportHelpers = 1;
  int exportEnvironment = 1;
  int removeFloatingVertices = 1;
  int removeHiddenObjects = 1;
  int rescale = 0;
  float rescaleFactor = 1.0f;
  std::string texturePath = ".";
  std::vector<std::string> texturePathHistory;  // most recent first
  int copyTextures = 1;
  int dumpInfo = 1;
  int retainHierarchies = 1;
  int pivotAsMeshCenter = 1;
  int saveReferencesOnce = 1;
  int sampleRate = 30;      // frames per second
  int sceneFrameRate = 30;  // travels through the file, replaced on creation
  float positionDelta = 0.001f;
  float rotationDelta = 0.001f;
  int frameToFrameInterpolation = 0;
  int maintainMatrixScaling = 0;
  int loop = 1;
  int loopInterpolation = 1;
  int decreaseEndFrameByOne = 1;
  int useGlobalAnimationRange = 1;

  // Set by the driver for each export; never saved.
  int startFrame = 0;
  int endFrame = 0;
  int loopToFrame = 0;
  Interval animationRange{0, 0};
  int ticksPerFrame = 160;

  std::string configFilePath;
  bool saveOnClose = false;
};
