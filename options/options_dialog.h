// The options dialog record: every option as the dialog edits it (booleans as
// 0/1 ints), loaded from ZTExport.cfg when it is created and saved there when
// it is discarded after the dialog closed with OK.
#pragma once

#include <string>
#include <vector>

#include "format/chunk_kinds.h"
#include "options/option_limits.h"
#include "host/inhouse/result.h"
#include "host/max_types.h"

inline constexpr const char* kOptionsFileName = "ZTExport.cfg";


class OptionsDialog {
 public:
  // A record holding the defaults, tied to no file.
  OptionsDialog() = default;
  // Sets the defaults, builds the file path from `configDir`, loads the file,
  // then sets sampleRate and sceneFrameRate to `hostFrameRate`.
  OptionsDialog(const std::string& configDir, int hostFrameRate);
  // Saves the file when saveOnClose is set, telling nobody of a failure: a
  // caller that can tell the user saves first and clears saveOnClose.
  ~OptionsDialog();
  OptionsDialog(const OptionsDialog&) = delete;
  OptionsDialog& operator=(const OptionsDialog&) = delete;

  // True when the whole file was read; false when it is missing, of a newer
  // version, truncated or damaged. A damaged file's values up to the fault are
  // kept and every later field keeps its default. A float outside the
  // spinner's limits is brought to the nearer limit, as the spinner shows it;
  // one that is not a number keeps its default. The interpolation method is
  // kept as stored, whatever its value (applyDialogOptions decides its meaning).
  bool loadOptions();
  // Writes the whole file (version 10). The texture path history is updated
  // first: the first entry equal to texturePath is removed and texturePath is
  // put at the front. A failure carries the system's reason; the caller
  // tells it with configFilePath.
  Result<void> saveOptions();

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

  std::string configFilePath;  // configDir, "/", kOptionsFileName
  bool saveOnClose = false;
};
