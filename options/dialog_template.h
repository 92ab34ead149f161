// The exporter's three windows as templates: every control with its
// identifier, kind, text and place in dialog units (a quarter of the font's
// average character width across, an eighth of its height down). A toolkit
// lays the windows out from these; nothing here knows one.
#pragma once

#include <string>
#include <vector>

namespace control_id {
inline constexpr int kNone = -1;  // labels and group boxes
inline constexpr int kOk = 1;
inline constexpr int kCancel = 2;
inline constexpr int kGeometry = 1000;
inline constexpr int kAnimation = 1001;
inline constexpr int kCameras = 1002;
inline constexpr int kLights = 1003;
inline constexpr int kMaterials = 1004;
inline constexpr int kHelpers = 1005;
inline constexpr int kEnvironment = 1006;
inline constexpr int kFloatingVertices = 1007;
inline constexpr int kHiddenObjects = 1008;
inline constexpr int kRescale = 1009;
inline constexpr int kSkinning = 1010;
inline constexpr int kTexturePath = 1013;
inline constexpr int kCopyTextures = 1015;
inline constexpr int kDumpInfo = 1016;
inline constexpr int kRetainHierarchies = 1018;
inline constexpr int kLoopInterpolation = 1020;
inline constexpr int kLoop = 1022;
inline constexpr int kRescaleEdit = 1023;
inline constexpr int kRescaleSpinner = 1024;
inline constexpr int kPositionDeltaEdit = 1025;
inline constexpr int kPositionDeltaSpinner = 1026;
inline constexpr int kRotationDeltaEdit = 1027;
inline constexpr int kRotationDeltaSpinner = 1028;
inline constexpr int kSampleRateEdit = 1029;
inline constexpr int kSampleRateSpinner = 1030;
inline constexpr int kStartFrameEdit = 1031;
inline constexpr int kStartFrameSpinner = 1032;
inline constexpr int kEndFrameEdit = 1033;
inline constexpr int kEndFrameSpinner = 1034;
inline constexpr int kLoopToFrameEdit = 1035;
inline constexpr int kLoopToFrameSpinner = 1036;
inline constexpr int kMaintainMatrixScaling = 1037;
inline constexpr int kUseGlobalAnimationRange = 1038;
inline constexpr int kInterpolation = 1039;
inline constexpr int kPivotAsMeshCenter = 1040;
inline constexpr int kSaveReferencesOnce = 1041;
inline constexpr int kDecreaseEndFrameByOne = 1042;
// The "Export Info" window's text.
inline constexpr int kExportInfoText = 1025;
}  // namespace control_id

enum class ControlKind {
  DefaultButton,
  Button,
  Label,
  NumberEdit,   // the edit half of a spinner
  Spinner,      // the arrows half; its edit lies just left of it
  CheckBox,
  DropDownList,
  EditableCombo,
  GroupBox,
  ReadOnlyText  // multi-line, both scroll bars
};

struct DialogControl {
  int id = control_id::kNone;
  ControlKind kind = ControlKind::Label;
  std::string text;  // with "&" before the mnemonic
  int x = 0, y = 0, width = 0, height = 0;
};

struct DialogTemplate {
  int resource = 0;
  std::string title;
  int width = 0, height = 0;
  std::string fontName;
  int fontPoints = 8;
  std::vector<DialogControl> controls;  // in template (tab) order
};

// "Export": resource 130, 348 x 263.
const DialogTemplate& exportDialogTemplate();
// "Export Info": resource 131, 517 x 199.
const DialogTemplate& exportInfoTemplate();
// "About": resource 129, 186 x 82; its three lines are labels in order,
// their texts filled in when it opens.
const DialogTemplate& aboutBoxTemplate();
