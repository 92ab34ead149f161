// Options file checks: a version this tool reads, flags 0 or 1, rates and
// modes within range.
#include <cmath>
#include <set>
#include <string>

#include "options/options_dialog.h"
#include "format/chunk_kinds.h"
#include "dump/validate.h"
#include "dump/validation_support.h"

namespace zt2dump {

void validateOptions(const DecodedFile& file) {
  const std::int32_t version = file.optionsVersion;
  if (version < 1 || version > kOptionsFileVersion)
    fault(file, "options version " + std::to_string(version) + " is not between 1 and " +
                    std::to_string(kOptionsFileVersion));
  // The retired flag is ignored by the reader whatever it holds; the
  // interpolation method is read as it stands and any value has a meaning.
  static const std::set<std::string> kNotFlags = {"sampleRate", "sceneFrameRate", "frameToFrameInterpolation",
                                                  "texturePathCount", "retiredFlag"};
  for (const DecodedField& f : file.optionsFields) {
    const std::string at = "options value " + f.name + " at byte offset " + std::to_string(f.offset);
    if (f.value.is_number_float()) {
      const double v = f.value.get<double>();
      if (!(v >= kFloatSpinnerMin && v <= kFloatSpinnerMax))
        fault(file, at + " is not a number from " + std::to_string(int(kFloatSpinnerMin)) + " to " +
                        std::to_string(int(kFloatSpinnerMax)));
    } else if (f.value.is_number_integer() && kNotFlags.count(f.name) == 0) {
      if (f.value != 0 && f.value != 1) fault(file, at + " is " + f.value.dump() + ", not 0 or 1");
    }
  }
  for (const char* rate : {"sampleRate", "sceneFrameRate"}) {
    for (const DecodedField& f : file.optionsFields)
      if (f.name == rate && intOf(f.value) <= 0)
        fault(file, "options value " + f.name + " at byte offset " + std::to_string(f.offset) + " is " +
                        f.value.dump() + ", not a positive frame rate");
  }
  for (const DecodedField& f : file.optionsFields) {
    if (f.name == "texturePathCount" && intOf(f.value) < 0)
      fault(file, "options value texturePathCount at byte offset " + std::to_string(f.offset) + " is negative");
    if (f.name == "texturePathHistory")
      for (std::size_t i = 0; i < f.value.size(); ++i)
        if (f.value[i].get<std::string>().empty())
          fault(file, "texture path " + std::to_string(i) + " is empty (an empty path is written as \".\")");
  }
}

}  // namespace zt2dump
