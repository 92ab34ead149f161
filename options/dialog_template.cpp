#include "options/dialog_template.h"

namespace {

using K = ControlKind;
namespace id = control_id;

constexpr const char* kFont = "MS Sans Serif";

}  // namespace

const DialogTemplate& exportDialogTemplate() {
  static const DialogTemplate t{
      130, "Export", 348, 263, kFont, 8,
      {
          {id::kOk, K::DefaultButton, "OK", 237, 242, 50, 14},
          {id::kCancel, K::Button, "Cancel", 291, 242, 50, 14},
          {id::kNone, K::Label, "&Start frame", 13, 27, 36, 10},
          {id::kStartFrameEdit, K::NumberEdit, "", 65, 27, 24, 10},
          {id::kStartFrameSpinner, K::Spinner, "", 89, 27, 11, 10},
          {id::kNone, K::Label, "&End frame", 13, 39, 36, 10},
          {id::kEndFrameEdit, K::NumberEdit, "", 65, 39, 24, 10},
          {id::kEndFrameSpinner, K::Spinner, "", 89, 39, 11, 10},
          {id::kNone, K::Label, "Loop &to frame", 13, 51, 46, 10},
          {id::kLoopToFrameEdit, K::NumberEdit, "", 65, 51, 24, 10},
          {id::kLoopToFrameSpinner, K::Spinner, "", 89, 51, 11, 10},
          {id::kUseGlobalAnimationRange, K::CheckBox, "Use global animation range", 13, 65, 101, 15},
          {id::kPositionDeltaEdit, K::NumberEdit, "", 13, 86, 33, 10},
          {id::kPositionDeltaSpinner, K::Spinner, "", 47, 86, 11, 10},
          {id::kNone, K::Label, "min. delta &pos.", 59, 86, 45, 13},
          {id::kRotationDeltaEdit, K::NumberEdit, "", 13, 103, 33, 10},
          {id::kRotationDeltaSpinner, K::Spinner, "", 47, 103, 11, 10},
          {id::kNone, K::Label, "min. delta &rot.", 59, 103, 45, 13},
          {id::kNone, K::Label, "Frame to frame rot. interpolation:", 13, 119, 101, 8},
          {id::kInterpolation, K::DropDownList, "", 15, 133, 74, 47},
          {id::kMaintainMatrixScaling, K::CheckBox, "Maintain matrix scaling", 15, 152, 94, 15},
          {id::kLoop, K::CheckBox, "&Loop when finished", 15, 175, 91, 15},
          {id::kLoopInterpolation, K::CheckBox, "Loop interpolation", 27, 189, 77, 12},
          {id::kDecreaseEndFrameByOne, K::CheckBox, "Dec. end frame by one", 27, 203, 88, 10},
          {id::kNone, K::Label, "Sample rate", 13, 218, 40, 10},
          {id::kSampleRateEdit, K::NumberEdit, "", 54, 217, 20, 10},
          {id::kSampleRateSpinner, K::Spinner, "", 74, 217, 11, 10},
          {id::kGeometry, K::CheckBox, "&Geometry", 133, 28, 55, 14},
          {id::kSkinning, K::CheckBox, "S&kinning", 145, 43, 55, 14},
          {id::kAnimation, K::CheckBox, "&Animation", 133, 58, 55, 14},
          {id::kCameras, K::CheckBox, "Cameras", 133, 73, 55, 14},
          {id::kLights, K::CheckBox, "Lights", 133, 88, 55, 14},
          {id::kMaterials, K::CheckBox, "&Materials", 133, 103, 55, 14},
          {id::kHelpers, K::CheckBox, "&Helpers", 133, 118, 55, 14},
          {id::kEnvironment, K::CheckBox, "Environment", 133, 133, 55, 14},
          {id::kFloatingVertices, K::CheckBox, "Floating vertices", 220, 28, 86, 14},
          {id::kHiddenObjects, K::CheckBox, "Hidden objects", 220, 44, 96, 14},
          {id::kNone, K::Label, "Path:", 217, 83, 18, 8},
          {id::kTexturePath, K::EditableCombo, "", 237, 82, 90, 73},
          {id::kCopyTextures, K::CheckBox, "&Copy textures to export path", 219, 98, 103, 13},
          {id::kRescale, K::CheckBox, "Re-Scale", 216, 134, 78, 14},
          {id::kRescaleEdit, K::NumberEdit, "", 226, 151, 33, 10},
          {id::kRescaleSpinner, K::Spinner, "", 259, 151, 11, 10},
          {id::kDumpInfo, K::CheckBox, "Dump info", 215, 165, 79, 13},
          {id::kRetainHierarchies, K::CheckBox, "Retain hierarchies", 215, 180, 79, 13},
          {id::kPivotAsMeshCenter, K::CheckBox, "Use pivot as mesh center", 215, 195, 103, 10},
          {id::kSaveReferencesOnce, K::CheckBox, "Save references only once", 215, 210, 101, 10},
          {id::kNone, K::GroupBox, "Export", 124, 13, 80, 152},
          {id::kNone, K::GroupBox, "Remove", 210, 13, 123, 53},
          {id::kNone, K::GroupBox, "Misc", 210, 124, 123, 104},
          {id::kNone, K::GroupBox, "Textures", 210, 70, 123, 48},
          {id::kNone, K::GroupBox, "Animation", 7, 13, 111, 222},
      }};
  return t;
}

const DialogTemplate& exportInfoTemplate() {
  static const DialogTemplate t{131, "Export Info", 517, 199, kFont, 8,
                                {
                                    {id::kExportInfoText, K::ReadOnlyText, "", 7, 7, 503, 160},
                                    {id::kOk, K::DefaultButton, "OK", 460, 178, 50, 14},
                                }};
  return t;
}

const DialogTemplate& aboutBoxTemplate() {
  // The lines' sizes are ours: as wide as the box allows, the second and
  // third two lines high for copyright and author texts that wrap.
  static const DialogTemplate t{129, "About", 186, 82, kFont, 8,
                                {
                                    {id::kOk, K::DefaultButton, "OK", 129, 61, 50, 14},
                                    {id::kNone, K::Label, "", 7, 7, 172, 10},
                                    {id::kNone, K::Label, "", 7, 21, 172, 20},
                                    {id::kNone, K::Label, "", 7, 43, 115, 16},
                                }};
  return t;
}
