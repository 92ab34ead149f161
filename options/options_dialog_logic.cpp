#include "options/options_dialog_logic.h"

#include "options/dialog_template.h"
#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "plugin/plugin_entry.h"

namespace {

namespace id = control_id;

struct Exchanged {
  int id;
  int OptionsDialog::*field;  // none for the texture path
};

// The dialog's data exchange order.
const std::vector<Exchanged>& exchangeTable() {
  static const std::vector<Exchanged> table = {
      {id::kGeometry, &OptionsDialog::exportGeometry},
      {id::kSkinning, &OptionsDialog::exportSkinning},
      {id::kAnimation, &OptionsDialog::exportAnimation},
      {id::kCameras, &OptionsDialog::exportCameras},
      {id::kEnvironment, &OptionsDialog::exportEnvironment},
      {id::kHelpers, &OptionsDialog::exportHelpers},
      {id::kLights, &OptionsDialog::exportLights},
      {id::kMaterials, &OptionsDialog::exportMaterials},
      {id::kDumpInfo, &OptionsDialog::dumpInfo},
      {id::kCopyTextures, &OptionsDialog::copyTextures},
      {id::kLoop, &OptionsDialog::loop},
      {id::kLoopInterpolation, &OptionsDialog::loopInterpolation},
      {id::kFloatingVertices, &OptionsDialog::removeFloatingVertices},
      {id::kHiddenObjects, &OptionsDialog::removeHiddenObjects},
      {id::kRescale, &OptionsDialog::rescale},
      {id::kTexturePath, nullptr},
      {id::kRetainHierarchies, &OptionsDialog::retainHierarchies},
      {id::kPivotAsMeshCenter, &OptionsDialog::pivotAsMeshCenter},
      {id::kMaintainMatrixScaling, &OptionsDialog::maintainMatrixScaling},
      {id::kSaveReferencesOnce, &OptionsDialog::saveReferencesOnce},
      {id::kDecreaseEndFrameByOne, &OptionsDialog::decreaseEndFrameByOne},
      {id::kUseGlobalAnimationRange, &OptionsDialog::useGlobalAnimationRange},
  };
  return table;
}

}  // namespace

OptionsDialogLogic::OptionsDialogLogic(OptionsDialog& record, DialogControls& controls)
    : record_(record), controls_(controls) {}

std::vector<DialogControls::Spinner> OptionsDialogLogic::spinners(const OptionsDialog& record) {
  // In creation order; limits and steps are the options field table's.
  struct Pair {
    int spinnerId, editId;
    const char* field;
  };
  static const Pair pairs[] = {
      {id::kRotationDeltaSpinner, id::kRotationDeltaEdit, "rotationDelta"},
      {id::kPositionDeltaSpinner, id::kPositionDeltaEdit, "positionDelta"},
      {id::kRescaleSpinner, id::kRescaleEdit, "rescaleFactor"},
      {id::kSampleRateSpinner, id::kSampleRateEdit, "sampleRate"},
      {id::kStartFrameSpinner, id::kStartFrameEdit, "startFrame"},
      {id::kEndFrameSpinner, id::kEndFrameEdit, "endFrame"},
      {id::kLoopToFrameSpinner, id::kLoopToFrameEdit, "loopToFrame"},
  };
  std::vector<DialogControls::Spinner> all;
  for (const Pair& p : pairs) {
    SpinnerRange range;
    spinnerRange(p.field, frameLimitsOf(record), range);
    // As many decimals as the step needs: 0.0001 shows four.
    int decimals = 0;
    for (double step = range.step; range.isFloat && step < 0.99 && decimals < 6; step *= 10) ++decimals;
    all.push_back({p.spinnerId, p.editId, range.isFloat, range.minimum, range.maximum, range.step, decimals});
  }
  return all;
}

const std::vector<int>& OptionsDialogLogic::exchangeOrder() {
  static const std::vector<int> order = [] {
    std::vector<int> ids;
    for (const Exchanged& e : exchangeTable()) ids.push_back(e.id);
    return ids;
  }();
  return order;
}

const std::vector<std::string>& OptionsDialogLogic::interpolationNames() {
  static const std::vector<std::string> names = {"None", "Normalized", "Orthonormalized"};
  return names;
}

void OptionsDialogLogic::exchange(bool toControls) {
  for (const Exchanged& e : exchangeTable()) {
    if (!e.field) {
      if (toControls)
        controls_.setText(e.id, record_.texturePath);
      else
        record_.texturePath = controls_.text(e.id);
    } else if (toControls) {
      controls_.setChecked(e.id, record_.*e.field != 0);
    } else {
      record_.*e.field = controls_.isChecked(e.id) ? 1 : 0;
    }
  }
}

void OptionsDialogLogic::onInitDialog() {
  exchange(true);
  controls_.setWindowTitle(exportDialogTemplate().title + " [" + kBuildDate + "]");

  const int values[] = {0, 0, 0, record_.sampleRate, record_.startFrame, record_.endFrame, record_.loopToFrame};
  const float floats[] = {record_.rotationDelta, record_.positionDelta, record_.rescaleFactor};
  const auto all = spinners(record_);
  for (std::size_t i = 0; i < all.size(); ++i)
    controls_.setupSpinner(all[i], all[i].isFloat ? floats[i] : values[i]);

  for (const std::string& path : record_.texturePathHistory) controls_.addListItem(id::kTexturePath, path);
  for (const std::string& name : interpolationNames()) controls_.addListItem(id::kInterpolation, name);
  controls_.selectListItem(id::kInterpolation, record_.frameToFrameInterpolation);

  loopRule();
  rescaleRule();
  interpolationRule(record_.frameToFrameInterpolation);
  geometryRule();
}

void OptionsDialogLogic::onClicked(int clicked) {
  switch (clicked) {
    case id::kLoop: loopRule(); break;
    case id::kRescale: rescaleRule(); break;
    case id::kGeometry: geometryRule(); break;
    default: break;
  }
}

void OptionsDialogLogic::onSelectionChanged(int list, int index) {
  if (list == id::kInterpolation) interpolationRule(index);
}

void OptionsDialogLogic::loopRule() {
  const bool loop = controls_.isChecked(id::kLoop);
  controls_.setEnabled(id::kLoopInterpolation, loop);
  controls_.setEnabled(id::kDecreaseEndFrameByOne, loop);
}

void OptionsDialogLogic::rescaleRule() {
  controls_.setEnabled(id::kRescaleSpinner, controls_.isChecked(id::kRescale));
}

void OptionsDialogLogic::interpolationRule(int index) {
  record_.frameToFrameInterpolation = index;
  controls_.setEnabled(id::kMaintainMatrixScaling, index != 0);
}

void OptionsDialogLogic::geometryRule() {
  controls_.setEnabled(id::kSkinning, controls_.isChecked(id::kGeometry));
}

void OptionsDialogLogic::onSpinnerChange(int spinnerId, double value) {
  const int whole = static_cast<int>(value);  // truncated toward zero
  switch (spinnerId) {
    case id::kRotationDeltaSpinner: record_.rotationDelta = static_cast<float>(value); break;
    case id::kPositionDeltaSpinner: record_.positionDelta = static_cast<float>(value); break;
    case id::kRescaleSpinner: record_.rescaleFactor = static_cast<float>(value); break;
    case id::kSampleRateSpinner: record_.sampleRate = whole; break;
    case id::kStartFrameSpinner:
      record_.startFrame = whole;
      if (record_.startFrame > record_.endFrame) {
        record_.endFrame = record_.startFrame;
        controls_.setSpinnerValue(id::kEndFrameSpinner, record_.endFrame);
      }
      break;
    case id::kEndFrameSpinner:
      record_.endFrame = whole;
      if (record_.endFrame < record_.startFrame) {
        record_.startFrame = record_.endFrame;
        controls_.setSpinnerValue(id::kStartFrameSpinner, record_.startFrame);
      }
      break;
    case id::kLoopToFrameSpinner: record_.loopToFrame = whole; break;
    default: return;
  }
  // The loop-to frame stays within the range, whichever spinner moved.
  if (record_.loopToFrame < record_.startFrame) record_.loopToFrame = record_.startFrame;
  if (record_.loopToFrame > record_.endFrame) record_.loopToFrame = record_.endFrame;
  controls_.setSpinnerValue(id::kLoopToFrameSpinner, record_.loopToFrame);
}

void OptionsDialogLogic::onOk() {
  exchange(false);
  record_.saveOnClose = true;
}
