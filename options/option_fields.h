// The options dialog record's editable fields by name, for front ends without
// the dialog (the command-line tool's --set name=value). Values are parsed
// strictly and held to the limits the dialog's controls enforce.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/inhouse/result.h"

class OptionsDialog;

// The range the three frame fields may take: the record's start and end frame
// as the driver set them, before any edit (the dialog's frame spinners take
// their limits the same way and keep them while it is open).
struct FrameLimits {
  int min = 0;
  int max = 0;
};

// The limits of the frame fields as `record` stands now. Capture them once,
// before the first edit, when several fields are set in a row.
FrameLimits frameLimitsOf(const OptionsDialog& record);

// What a spinner field accepts, as the options dialog's spinner holds it.
struct SpinnerRange {
  double minimum = 0.0;
  double maximum = 0.0;
  double step = 1.0;
  bool isFloat = false;
};
// The range of spinner field `name`, the frames' taken from `frames`; false
// for a field that is no spinner.
bool spinnerRange(const std::string& name, const FrameLimits& frames, SpinnerRange& out);

// One checked edit of one field, ready to apply to any record.
struct OptionEdit {
  std::size_t field = 0;  // position in the field table
  int intValue = 0;
  float floatValue = 0.0f;
  std::string textValue;
};

// Checks `value` for field `name` against the field's kind and limits, the
// frames against `frames`. Refused with one line (the same lines as
// setOptionField).
Result<OptionEdit> parseOptionEdit(const std::string& name, const std::string& value, const FrameLimits& frames);
// Applies a checked edit, then the spinner rules below; cannot fail.
void applyOptionEdit(OptionsDialog& record, const OptionEdit& edit);

// Sets field `name` of `record` from `value`. On failure returns false, leaves
// the record untouched and puts one line into `error`, such as
// "--set sampleRate=0: sampleRate must be between 1 and 500".
//
// Accepted values: flags 0, 1, true, false; integers in decimal; floats in
// decimal (exponent allowed); texturePath any text; frameToFrameInterpolation
// 0, 1, 2 or none, normalized, orthonormalized. Limits: rotationDelta,
// positionDelta and rescaleFactor 0..100; sampleRate 1..500 (a rate of 0 would
// give the animation sampling a zero step); startFrame, endFrame and
// loopToFrame within `frames`.
//
// The seven spinner fields (the deltas, rescaleFactor, sampleRate and the
// three frames) follow the dialog's spinner rules: a start frame past the end
// frame pulls the end frame along and an end frame before the start frame
// pulls the start frame along; then the loop-to frame is held inside
// [startFrame, endFrame].
bool setOptionField(OptionsDialog& record, const std::string& name, const std::string& value, std::string& error,
                    const FrameLimits& frames);
// The same with the limits taken from `record` as it stands.
bool setOptionField(OptionsDialog& record, const std::string& name, const std::string& value, std::string& error);

// The field's current value as setOptionField accepts it back; false for an
// unknown name.
bool getOptionField(const OptionsDialog& record, const std::string& name, std::string& value);

// Every field name, in the table's order.
std::vector<std::string> optionFieldNames();

// What a front end needs to build a control for each field, in the table's
// order: a dialog, a property panel, a form.
struct OptionFieldInfo {
  std::string name;
  const char* kind = "";          // "bool", "int", "float", "enum" or "string"
  std::string defaultValue;       // a new record's, as getOptionField gives it
  const char* sceneDefault = "";  // what sets the default on each export instead, or ""
  bool hasLimits = false;         // minimum and maximum hold
  double minimum = 0.0, maximum = 0.0;
  bool limitsFromScene = false;   // the frames: the scene's frame range, known only with the scene
  double step = 0.0;              // a spinner's step, else 0
  std::vector<std::string> choices;  // an enum's words, value 0 first
};
std::vector<OptionFieldInfo> optionFieldInfos();

// A listing of the fields for --help: one line each with name, type, accepted
// range and default.
std::string optionFieldsHelp();
