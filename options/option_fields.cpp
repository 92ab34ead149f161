#include "options/option_fields.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <numeric>

#include "options/number_text.h"
#include "options/options_dialog.h"

namespace {

enum class Kind { Flag, Float, SampleRate, Frame, Text, Interpolation };

struct Field {
  const char* name;
  Kind kind;
  int OptionsDialog::*intMember;
  float OptionsDialog::*floatMember;
  std::string OptionsDialog::*textMember;
  const char* defaultText;
  bool spinner;  // one of the dialog's seven spinners
};

constexpr float kFloatMin = kOptionFloatMin;
constexpr float kFloatMax = kOptionFloatMax;

constexpr const char* kInterpolationWords[] = {"none", "normalized", "orthonormalized"};

Field flag(const char* name, int OptionsDialog::*member, const char* defaultText) {
  return {name, Kind::Flag, member, nullptr, nullptr, defaultText, false};
}
Field floatSpinner(const char* name, float OptionsDialog::*member, const char* defaultText) {
  return {name, Kind::Float, nullptr, member, nullptr, defaultText, true};
}
Field frame(const char* name, int OptionsDialog::*member, const char* defaultText) {
  return {name, Kind::Frame, member, nullptr, nullptr, defaultText, true};
}

// In the record's order. The default texts are the record's defaults; the
// sample rate and the frames come from the scene on every export.
const std::vector<Field>& fields() {
  static const std::vector<Field> table = {
      flag("exportGeometry", &OptionsDialog::exportGeometry, "1"),
      flag("exportSkinning", &OptionsDialog::exportSkinning, "1"),
      flag("exportAnimation", &OptionsDialog::exportAnimation, "1"),
      flag("exportCameras", &OptionsDialog::exportCameras, "1"),
      flag("exportLights", &OptionsDialog::exportLights, "1"),
      flag("exportMaterials", &OptionsDialog::exportMaterials, "1"),
      flag("exportHelpers", &OptionsDialog::exportHelpers, "1"),
      flag("exportEnvironment", &OptionsDialog::exportEnvironment, "1"),
      flag("removeFloatingVertices", &OptionsDialog::removeFloatingVertices, "1"),
      flag("removeHiddenObjects", &OptionsDialog::removeHiddenObjects, "1"),
      flag("rescale", &OptionsDialog::rescale, "0"),
      floatSpinner("rescaleFactor", &OptionsDialog::rescaleFactor, "1"),
      {"texturePath", Kind::Text, nullptr, nullptr, &OptionsDialog::texturePath, ".", false},
      flag("copyTextures", &OptionsDialog::copyTextures, "1"),
      flag("dumpInfo", &OptionsDialog::dumpInfo, "1"),
      flag("retainHierarchies", &OptionsDialog::retainHierarchies, "1"),
      flag("pivotAsMeshCenter", &OptionsDialog::pivotAsMeshCenter, "1"),
      flag("saveReferencesOnce", &OptionsDialog::saveReferencesOnce, "1"),
      {"sampleRate", Kind::SampleRate, &OptionsDialog::sampleRate, nullptr, nullptr, "scene frame rate", true},
      floatSpinner("positionDelta", &OptionsDialog::positionDelta, "0.001"),
      floatSpinner("rotationDelta", &OptionsDialog::rotationDelta, "0.001"),
      {"frameToFrameInterpolation", Kind::Interpolation, &OptionsDialog::frameToFrameInterpolation, nullptr, nullptr,
       "none", false},
      flag("maintainMatrixScaling", &OptionsDialog::maintainMatrixScaling, "0"),
      flag("loop", &OptionsDialog::loop, "1"),
      flag("loopInterpolation", &OptionsDialog::loopInterpolation, "1"),
      flag("decreaseEndFrameByOne", &OptionsDialog::decreaseEndFrameByOne, "1"),
      flag("useGlobalAnimationRange", &OptionsDialog::useGlobalAnimationRange, "1"),
      frame("startFrame", &OptionsDialog::startFrame, "0"),
      frame("endFrame", &OptionsDialog::endFrame, "range length in frames"),
      frame("loopToFrame", &OptionsDialog::loopToFrame, "0"),
  };
  return table;
}

const Field* findField(const std::string& name) {
  for (const Field& f : fields())
    if (name == f.name) return &f;
  return nullptr;
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
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
  const std::string wanted = lower(name);
  const Field* onlyPrefixed = nullptr;
  int prefixed = 0;
  for (const Field& f : fields()) {
    if (!wanted.empty() && lower(f.name).rfind(wanted, 0) == 0) {
      onlyPrefixed = &f;
      ++prefixed;
    }
  }
  if (prefixed == 1) return onlyPrefixed->name;

  std::string best;
  std::size_t bestDistance = SIZE_MAX;
  for (const Field& f : fields()) {
    const std::size_t d = editDistance(wanted, lower(f.name));
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
    case Kind::Float: return "0 to 100";
    case Kind::SampleRate: return "1 to 500";
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

bool setOptionField(OptionsDialog& record, const std::string& name, const std::string& value, std::string& error,
                    const FrameLimits& frames) {
  const std::string prefix = "--set " + name + "=" + value + ": ";
  const Field* field = findField(name);
  if (!field) {
    error = prefix + "unknown option field '" + name + "' (did you mean '" + closestName(name) + "'?)";
    return false;
  }

  switch (field->kind) {
    case Kind::Flag: {
      int v = 0;
      if (!parseFlag(value, v)) {
        error = prefix + name + " takes 0, 1, true or false";
        return false;
      }
      record.*(field->intMember) = v;
      break;
    }
    case Kind::Interpolation: {
      int v = 0;
      if (!parseInterpolation(value, v)) {
        error = prefix + name + " takes 0, 1, 2, none, normalized or orthonormalized";
        return false;
      }
      record.*(field->intMember) = v;
      break;
    }
    case Kind::Float: {
      float v = 0.0f;
      if (!parseFiniteFloat(value, v)) {
        error = prefix + name + " must be a number";
        return false;
      }
      if (v < kFloatMin || v > kFloatMax) {
        error = prefix + name + " must be between 0 and 100";
        return false;
      }
      record.*(field->floatMember) = v;
      break;
    }
    case Kind::SampleRate:
    case Kind::Frame: {
      std::int32_t v = 0;
      if (!parseInt32(value, v)) {
        error = prefix + name + " must be an integer";
        return false;
      }
      const bool isRate = field->kind == Kind::SampleRate;
      const int lo = isRate ? kSampleRateMin : frames.min;
      const int hi = isRate ? kSampleRateMax : frames.max;
      if (v < lo || v > hi) {
        error = prefix + name + " must be between " + std::to_string(lo) + " and " + std::to_string(hi) +
                (isRate ? "" : " (the scene's frame range)");
        return false;
      }
      record.*(field->intMember) = v;
      break;
    }
    case Kind::Text:
      record.*(field->textMember) = value;
      break;
  }

  if (field->spinner) followSpinnerRules(record, *field);
  error.clear();
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
  for (const Field& f : fields()) rows.push_back({f.name, typeOf(f), rangeOf(f), f.defaultText});

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
