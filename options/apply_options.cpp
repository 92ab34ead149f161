#include "options/apply_options.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "host/inhouse/exceptions.h"
#include "host/inhouse/system.h"
#include "options/options_dialog.h"
#include "options/script.h"
#include "plugin/scene_exporter.h"

namespace {

// The script's "not given" value for every numeric key.
constexpr std::int32_t kNotGiven = -1;
constexpr float kNotGivenFloat = -1.0f;
// The interpolation word lands in a 256-byte buffer in the script's original
// home; anything longer can never be one of the three words.
constexpr std::size_t kMaxInterpolationWord = 255;

// The method a script word names, or -1 for anything else (case matters).
int interpolationFromWord(const std::string& word) {
  if (word.size() > kMaxInterpolationWord) return -1;
  if (word == "none") return static_cast<int>(FrameInterpolation::None);
  if (word == "normalized") return static_cast<int>(FrameInterpolation::Normalized);
  if (word == "orthonormalized") return static_cast<int>(FrameInterpolation::Orthonormalized);
  return -1;
}

}  // namespace

void applyDialogOptions(SceneExporter& exporter, const OptionsDialog& record) {
  ExportOptions& o = exporter.options;
  o.exportGeometry = record.exportGeometry != 0;
  o.exportSkinning = record.exportSkinning != 0;
  o.exportAnimation = record.exportAnimation != 0;
  o.exportCameras = record.exportCameras != 0;
  o.exportLights = record.exportLights != 0;
  o.exportMaterials = record.exportMaterials != 0;
  o.exportHelpers = record.exportHelpers != 0;
  o.exportEnvironment = record.exportEnvironment != 0;
  o.removeFloatingVertices = record.removeFloatingVertices != 0;
  o.removeHiddenObjects = record.removeHiddenObjects != 0;
  o.copyTextures = record.copyTextures != 0;
  o.dumpInfo = record.dumpInfo != 0;
  o.retainHierarchies = record.retainHierarchies != 0;
  o.pivotAsMeshCenter = record.pivotAsMeshCenter != 0;
  o.saveReferencesOnce = record.saveReferencesOnce != 0;
  o.maintainMatrixScaling = record.maintainMatrixScaling != 0;
  o.loop = record.loop != 0;
  o.loopInterpolation = record.loopInterpolation != 0;
  o.useGlobalAnimationRange = record.useGlobalAnimationRange != 0;
  o.positionDelta = record.positionDelta;
  o.rotationDelta = record.rotationDelta;
  // A stored method the dialog cannot show (outside 0..2) exports as none.
  const int method = record.frameToFrameInterpolation;
  o.frameToFrameInterpolation = method >= 0 && method <= 2 ? method : static_cast<int>(FrameInterpolation::None);
  o.texturePath = record.texturePath;
  o.startFrame = record.startFrame;
  o.endFrame = record.endFrame;
  o.loopToFrame = record.loopToFrame;

  // The check box stays as the user left it; without interpolation there is
  // no matrix to keep the scaling of.
  if (o.frameToFrameInterpolation == static_cast<int>(FrameInterpolation::None)) o.maintainMatrixScaling = false;

  // Static chunks are evaluated at the start frame, in the scene's own ticks.
  exporter.startTime = exporter.ticksPerFrame * o.startFrame;

  if (!o.loop) o.loopInterpolation = false;

  // A looping clip's last frame equals its first; dropping it avoids a
  // doubled frame at the seam. Without looping the range stays whole.
  if (o.loop && record.decreaseEndFrameByOne != 0) {
    o.endFrame = std::max(o.endFrame - 1, o.startFrame);
    if (o.loopToFrame > o.endFrame) o.loopToFrame = o.endFrame;
  }

  // Unchecked "Re-Scale" keeps the driver's 1.0, whatever the spinner holds.
  if (record.rescale != 0) o.rescaleFactor = record.rescaleFactor;

  // From here on every host time query runs at the export's sample rate; the
  // driver restores the scene's rate at the end.
  o.sampleRate = record.sampleRate;
  exporter.host->SetFrameRate(o.sampleRate);
}

void readAdditionalConfig(SceneExporter& exporter) {
  const std::string path = exporter.host->GetDir(APP_PLUGCFG_DIR) + "/" + kAdditionalConfigFileName;
  if (!File->exists(path)) return;

  float positionDelta = kNotGivenFloat;
  float rotationDelta = kNotGivenFloat;
  std::int32_t loop = kNotGiven;
  std::int32_t loopToFrame = kNotGiven;
  std::int32_t startFrame = kNotGiven;
  std::int32_t endFrame = kNotGiven;
  std::int32_t loopInterpolation = kNotGiven;
  std::string frameToFrameInterpolation;
  std::int32_t decreaseEndFrameByOne = kNotGiven;

  const T_Script::Variables variables[] = {
      {"positionDelta", &positionDelta, "-1", T_Script::t_float},
      {"rotationDelta", &rotationDelta, "-1", T_Script::t_float},
      {"loop", &loop, "-1", T_Script::t_int},
      {"loopToFrame", &loopToFrame, "-1", T_Script::t_int},
      {"startFrame", &startFrame, "-1", T_Script::t_int},
      {"endFrame", &endFrame, "-1", T_Script::t_int},
      {"loopInterpolation", &loopInterpolation, "-1", T_Script::t_int},
      {"frameToFrameInterpolation", &frameToFrameInterpolation, "", T_Script::t_string},
      {"decreaseEndFrameByOne", &decreaseEndFrameByOne, "-1", T_Script::t_int},
      {nullptr, nullptr, nullptr, T_Script::t_int},
  };

  try {
    const T_Script script(path.c_str());
    // Strict: a misspelt key would otherwise be silently ignored.
    script.parse(variables, kAdditionalConfigBlock, 0, true);
  } catch (const T_ScriptException_BlockNotFound&) {
    return;
  } catch (const T_Exception& e) {
    exporter.logError("Error while reading additional config script: %s", e.getErrorMessage().c_str());
    return;
  }

  ExportOptions& o = exporter.options;
  if (positionDelta != kNotGivenFloat) o.positionDelta = positionDelta;
  if (rotationDelta != kNotGivenFloat) o.rotationDelta = rotationDelta;

  if (!frameToFrameInterpolation.empty()) {
    const int method = interpolationFromWord(frameToFrameInterpolation);
    if (method >= 0) {
      o.frameToFrameInterpolation = method;
    } else {
      exporter.logError("Error while reading additional config script: frame to frame interpolation method not valid(%s)",
                          frameToFrameInterpolation.c_str());
    }
  }
  if (o.frameToFrameInterpolation == static_cast<int>(FrameInterpolation::None)) o.maintainMatrixScaling = false;

  // The three frames travel together: a script that names a loop-to frame
  // owns the whole range, absent ends included (they stand as -1).
  if (loopToFrame != kNotGiven) {
    o.loopToFrame = loopToFrame;
    o.startFrame = startFrame;
    o.endFrame = endFrame;
  }

  if (loop != kNotGiven) o.loop = loop != 0;
  if (loopInterpolation != kNotGiven) o.loopInterpolation = loopInterpolation != 0;

  if (!o.loop) {
    o.loopInterpolation = false;
  } else if (decreaseEndFrameByOne != kNotGiven) {
    // Any given value counts, 0 included, and the scene's whole range is the base.
    const Interval& range = exporter.animationRange;
    const int length = exporter.ticksPerFrame > 0 ? (range.End() - range.Start()) / exporter.ticksPerFrame : 0;
    o.endFrame = std::max(length - 1, o.startFrame);
  }

  if (o.loopToFrame < o.startFrame) o.loopToFrame = o.startFrame;
  if (o.loopToFrame > o.endFrame) o.loopToFrame = o.endFrame;
}
