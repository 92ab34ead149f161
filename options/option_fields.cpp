#include "options/option_fields.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <iterator>
#include <numeric>

#include "host/inhouse/text.h"
#include "options/number_text.h"
#include "options/option_limits.h"
#include "options/options_dialog.h"

namespace {

enum class Kind { Flag, Float, SampleRate, Frame, Text, Interpolation };

struct Field {
  const char* name;
  Kind kind;
  int OptionsDialog::*intMember;
  float OptionsDialog::*floatMember;
  std::string OptionsDialog::*textMember;
  const char* sceneDefault;  // what sets the default on each export, or none: the record's own
  bool spinner;              // one of the dialog's seven spinners
  float step = 1.0f;         // a spinner's step
};

constexpr const char* kInterpolationWords[] = {"none", "normalized", "orthonormalized"};

Field flag(const char* name, int OptionsDialog::*member) {
  return {name, Kind::Flag, member, nullptr, nullptr, nullptr, false};
}
Field floatSpinner(const char* name, float OptionsDialog::*member, float step) {
  return {name, Kind::Float, nullptr, member, nullptr, nullptr, true, step};
}
Field frame(const char* name, int OptionsDialog::*member, const char* sceneDefault = nullptr) {
  return {name, Kind::Frame, member, nullptr, nullptr, sceneDefault, true};
}

// In the record's order. Defaults are read from a new record; the sample
// rate and the end frame come from the scene on every export.
const std::vector<Field>& fields() {
  static const std::vector<Field> table = {
      flag("exportGeometry", &OptionsDialog::exportGeometry),
      flag("exportSkinning", &OptionsDialog::exportSkinning),
      flag("exportAnimation", &OptionsDialog::exportAnimation),
      flag("exportCameras", &OptionsDialog::exportCameras),
      flag("exportLights", &OptionsDialog::exportLights),
      flag("exportMaterials", &OptionsDialog::exportMaterials),
      flag("exportHelpers", &OptionsDialog::exportHelpers),
      flag("exportEnvironment", &OptionsDialog::exportEnvironment),
      flag("removeFloatingVertices", &OptionsDialog::removeFloatingVertices),
      flag("removeHiddenObjects", &OptionsDialog::removeHiddenObjects),
      flag("rescale", &OptionsDialog::rescale),
      floatSpinner("rescaleFactor", &OptionsDialog::rescaleFactor, kRescaleStep),
      {"texturePath", Kind::Text, nullptr, nullptr, &OptionsDialog::texturePath, nullptr, false},
      flag("copyTextures", &OptionsDialog::copyTextures),
      flag("dumpInfo", &OptionsDialog::dumpInfo),
      flag("retainHierarchies", &OptionsDialog::retainHierarchies),
      flag("pivotAsMeshCenter", &OptionsDialog::pivotAsMeshCenter),
      flag("saveReferencesOnce", &OptionsDialog::saveReferencesOnce),
      {"sampleRate", Kind::SampleRate, &OptionsDialog::sampleRate, nullptr, nullptr, "scene frame rate", true},
      floatSpinner("positionDelta", &OptionsDialog::positionDelta, kDeltaStep),
      floatSpinner("rotationDelta", &OptionsDialog::rotationDelta, kDeltaStep),
      {"frameToFrameInterpolation", Kind::Interpolation, &OptionsDialog::frameToFrameInterpolation, nullptr, nullptr,
       nullptr, false},
      flag("maintainMatrixScaling", &OptionsDialog::maintainMatrixScaling),
      flag("loop", &OptionsDialog::loop),
      flag("loopInterpolation", &OptionsDialog::loopInterpolation),
      flag("decreaseEndFrameByOne", &OptionsDialog::decreaseEndFrameByOne),
      flag("useGlobalAnimationRange", &OptionsDialog::useGlobalAnimationRange),
      frame("startFrame", &OptionsDialog::startFrame),
      frame("endFrame", &OptionsDialog::endFrame, "range length in frames"),
      frame("loopToFrame", &OptionsDialog::loopToFrame),
  };
  return table;
}

const Field* findField(const std::string& name) {
  for (const Field& f : fields())
    if (name == f.name) return &f;
  return nullptr;
}

std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// Case is ignored, so "samplerate" finds "sampleRate" at once; a shortened
// name that begins exactly one field ("loopTo") names that field.
std::string closestName(const std::string& name) {
  const std::string wanted = ztext::asciiLower(name);
  const Field* onlyPrefixed = nullptr;
  int prefixed = 0;
  for (const Field& f : fields()) {
    if (!wanted.empty() && ztext::asciiLower(f.name).rfind(wanted, 0) == 0) {
      onlyPrefixed = &f;
      ++prefixed;
    }
  }
  if (prefixed == 1) return onlyPrefixed->name;

  std::string best;
  std::size_t bestDistance = SIZE_MAX;
  for (const Field& f : fields()) {
    const std::size_t d = editDistance(wanted, ztext::asciiLower(f.name));
    if (d < bestDistance) {
      bestDistance = d;
      best = f.name;
    }
  }
  return best;
}

std::string typeOf(const Field& f) {
  switch (f.kind) {
    case Kind::Flag: return "flag";
    case Kind::Float: return "float";
    case Kind::SampleRate:
    case Kind::Frame: return "int";
    case Kind::Text: return "text";
    case Kind::Interpolation: return "method";
  }
  return "?";
}

std::string rangeOf(const Field& f) {
  switch (f.kind) {
    case Kind::Flag: return "0, 1, true, false";
    case Kind::Float: return formatFloat(kFloatSpinnerMin) + " to " + formatFloat(kFloatSpinnerMax);
    case Kind::SampleRate: return std::to_string(kSampleRateMin) + " to " + std::to_string(kSampleRateMax);
    case Kind::Frame: return "the scene's frame range";
    case Kind::Text: return "any text";
    case Kind::Interpolation: return "0/none, 1/normalized, 2/orthonormalized";
  }
  return "?";
}

bool parseFlag(const std::string& text, int& out) {
  if (text == "1" || text == "true") {
    out = 1;
    return true;
  }
  if (text == "0" || text == "false") {
    out = 0;
    return true;
  }
  return false;
}

bool parseInterpolation(const std::string& text, int& out) {
  for (int i = 0; i < 3; ++i) {
    if (text == kInterpolationWords[i] || text == std::to_string(i)) {
      out = i;
      return true;
    }
  }
  return false;
}

// The dialog's spinner-change rules, run after any spinner field changed.
void followSpinnerRules(OptionsDialog& record, const Field& field) {
  if (field.intMember == &OptionsDialog::startFrame && record.startFrame > record.endFrame)
    record.endFrame = record.startFrame;
  if (field.intMember == &OptionsDialog::endFrame && record.endFrame < record.startFrame)
    record.startFrame = record.endFrame;
  if (record.loopToFrame < record.startFrame) record.loopToFrame = record.startFrame;
  if (record.loopToFrame > record.endFrame) record.loopToFrame = record.endFrame;
}

}  // namespace

FrameLimits frameLimitsOf(const OptionsDialog& record) { return {record.startFrame, record.endFrame}; }

bool spinnerRange(const std::string& name, const FrameLimits& frames, SpinnerRange& out) {
  const Field* field = findField(name);
  if (!field || !field->spinner) return false;
  switch (field->kind) {
    case Kind::Float: out = {kFloatSpinnerMin, kFloatSpinnerMax, field->step, true}; break;
    case Kind::SampleRate: out = {double(kSampleRateMin), double(kSampleRateMax), 1.0, false}; break;
    default: out = {double(frames.min), double(frames.max), 1.0, false}; break;
  }
  return true;
}

Result<OptionEdit> parseOptionEdit(const std::string& name, const std::string& value, const FrameLimits& frames) {
  const std::string prefix = "--set " + name + "=" + value + ": ";
  auto refuse = [&prefix](const std::string& why) { return Error{ErrorKind::badRequest, prefix + why}; };
  const Field* field = findField(name);
  if (!field) return refuse("unknown option field '" + name + "' (did you mean '" + closestName(name) + "'?)");
  OptionEdit out;
  out.field = static_cast<std::size_t>(field - fields().data());

  switch (field->kind) {
    case Kind::Flag:
      if (!parseFlag(value, out.intValue))
        return refuse(name + " takes 0, 1, true or false");
      break;
    case Kind::Interpolation:
      if (!parseInterpolation(value, out.intValue))
        return refuse(name + " takes 0, 1, 2, none, normalized or orthonormalized");
      break;
    case Kind::Float:
      if (!parseFiniteFloat(value, out.floatValue))
        return refuse(name + " must be a number");
      if (out.floatValue < kFloatSpinnerMin || out.floatValue > kFloatSpinnerMax)
        return refuse(name + " must be between " + formatFloat(kFloatSpinnerMin) + " and " +
                      formatFloat(kFloatSpinnerMax));
      break;
    case Kind::SampleRate:
    case Kind::Frame: {
      std::int32_t v = 0;
      if (!parseInt32(value, v))
        return refuse(name + " must be an integer");
      const bool isRate = field->kind == Kind::SampleRate;
      const int lo = isRate ? kSampleRateMin : frames.min;
      const int hi = isRate ? kSampleRateMax : frames.max;
      if (v < lo || v > hi)
        return refuse(name + " must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
                      (isRate ? "" : " (the scene's frame range)"));
      out.intValue = v;
      break;
    }
    case Kind::Text:
      out.textValue = value;
      break;
  }
  return out;
}

void applyOptionEdit(OptionsDialog& record, const OptionEdit& edit) {
  const Field& field = fields().at(edit.field);
  switch (field.kind) {
    case Kind::Flag:
    case Kind::Interpolation:
    case Kind::SampleRate:
    case Kind::Frame: record.*(field.intMember) = edit.intValue; break;
    case Kind::Float: record.*(field.floatMember) = edit.floatValue; break;
    case Kind::Text: record.*(field.textMember) = edit.textValue; break;
  }
  if (field.spinner) followSpinnerRules(record, field);
}

bool setOptionField(OptionsDialog& record, const std::string& name, const std::string& value, std::string& error,
                    const FrameLimits& frames) {
  const Result<OptionEdit> edit = parseOptionEdit(name, value, frames);
  if (!edit) {
    error = edit.error().message;
    return false;
  }
  error.clear();
  applyOptionEdit(record, edit.value());
  return true;
}

bool setOptionField(OptionsDialog& record, const std::string& name, const std::string& value, std::string& error) {
  return setOptionField(record, name, value, error, frameLimitsOf(record));
}

bool getOptionField(const OptionsDialog& record, const std::string& name, std::string& value) {
  const Field* field = findField(name);
  if (!field) return false;
  switch (field->kind) {
    case Kind::Flag:
    case Kind::SampleRate:
    case Kind::Frame: value = std::to_string(record.*(field->intMember)); break;
    case Kind::Interpolation: {
      const int v = record.*(field->intMember);
      value = v >= 0 && v <= 2 ? kInterpolationWords[v] : std::to_string(v);
      break;
    }
    case Kind::Float: value = formatFloat(record.*(field->floatMember)); break;
    case Kind::Text: value = record.*(field->textMember); break;
  }
  return true;
}

std::vector<std::string> optionFieldNames() {
  std::vector<std::string> names;
  for (const Field& f : fields()) names.emplace_back(f.name);
  return names;
}

std::string optionFieldsHelp() {
  struct Row {
    std::string name, type, range, defaultText;
  };
  std::vector<Row> rows{{"field", "type", "accepted values", "default"}};
  const OptionsDialog defaults;
  for (const Field& f : fields()) {
    std::string value;
    if (f.sceneDefault) value = f.sceneDefault;
    else getOptionField(defaults, f.name, value);
    rows.push_back({f.name, typeOf(f), rangeOf(f), value});
  }

  std::size_t widths[3] = {0, 0, 0};
  for (const Row& r : rows) {
    widths[0] = std::max(widths[0], r.name.size());
    widths[1] = std::max(widths[1], r.type.size());
    widths[2] = std::max(widths[2], r.range.size());
  }
  auto pad = [](const std::string& s, std::size_t width) { return s + std::string(width - s.size() + 2, ' '); };
  std::string text;
  for (const Row& r : rows)
    text += "  " + pad(r.name, widths[0]) + pad(r.type, widths[1]) + pad(r.range, widths[2]) + r.defaultText + "\n";
  return text;
}

std::vector<OptionFieldInfo> optionFieldInfos() {
  std::vector<OptionFieldInfo> out;
  const OptionsDialog defaults;
  for (const Field& f : fields()) {
    OptionFieldInfo info;
    info.name = f.name;
    getOptionField(defaults, f.name, info.defaultValue);
    if (f.sceneDefault) info.sceneDefault = f.sceneDefault;
    switch (f.kind) {
      case Kind::Flag: info.kind = "bool"; break;
      case Kind::Float:
        info.kind = "float";
        info.hasLimits = true;
        info.minimum = kFloatSpinnerMin;
        info.maximum = kFloatSpinnerMax;
        break;
      case Kind::SampleRate:
        info.kind = "int";
        info.hasLimits = true;
        info.minimum = kSampleRateMin;
        info.maximum = kSampleRateMax;
        break;
      case Kind::Frame:
        info.kind = "int";
        info.limitsFromScene = true;
        break;
      case Kind::Text: info.kind = "string"; break;
      case Kind::Interpolation:
        info.kind = "enum";
        info.choices.assign(std::begin(kInterpolationWords), std::end(kInterpolationWords));
        break;
    }
    if (f.spinner) info.step = f.step;
    out.push_back(std::move(info));
  }
  return out;
}
