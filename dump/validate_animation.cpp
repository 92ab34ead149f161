// Animation checks: the exporter's own track rules (animation/track_rules.h)
// on every track, finite values, modes within their range, flags that agree.
#include <cmath>

#include "animation/track_rules.h"
#include "format/chunk_kinds.h"
#include "dump/scene_checks.h"
#include "dump/validation_support.h"

namespace zt2dump {

namespace {

std::string nodeOf(const DecodedChunk& animation) {
  const DecodedChunk* header = childWithId(animation, chunk_kind::kAnimationHeader.id);
  return header != nullptr ? " (node \"" + header->at("name").get<std::string>() + "\")" : std::string();
}

std::string placeOf(const DecodedChunk& c) { return where(c) + nodeOf(c) + ": "; }

void checkNumSamples(const DecodedFile& file, const DecodedChunk& c) {
  if (const std::string f = numSamplesFault(intOf(c.at("numSamples"))); !f.empty()) fault(file, placeOf(c) + f);
}

void checkTrack(const DecodedFile& file, const DecodedChunk& c, const char* track) {
  const Json& keys = c.at(track);
  std::vector<std::int64_t> samples;
  samples.reserve(keys.size());
  for (const Json& key : keys) samples.push_back(intOf(key["sample"]));
  if (const std::string f = trackFault(track, samples, intOf(c.at("numSamples"))); !f.empty())
    fault(file, placeOf(c) + f);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    for (auto it = keys[i].begin(); it != keys[i].end(); ++it) {
      if (it.key() == "sample") continue;
      const Json flat = it.value().is_array() ? it.value().flatten() : Json::object({{"", it.value()}});
      for (const auto& x : flat)
        if (!x.is_number() || !std::isfinite(x.get<double>()))
          fault(file, placeOf(c) + track + "[" + std::to_string(i) + "] holds a value that is not finite");
    }
  }
}

void checkLoopFlags(const DecodedFile& file, const DecodedChunk& c) {
  const DecodedChunk* header = childWithId(c, chunk_kind::kAnimationHeader.id);
  if (header != nullptr && !header->at("loop").get<bool>() && c.at("loopInterpolation").get<bool>())
    fault(file, placeOf(c) + "loopInterpolation is set while loop is not");
}

}  // namespace

void checkTransformAnimation(const DecodedFile& file, const DecodedChunk& c) {
  checkNumSamples(file, c);
  checkTrack(file, c, "keys");
  checkTrack(file, c, "visibilityKeys");
  const std::int64_t mode = intOf(c.at("frameToFrameInterpolation"));
  if (mode < 0 || mode > 2)
    fault(file, placeOf(c) + "frameToFrameInterpolation " + std::to_string(mode) + " is not 0, 1 or 2");
  if (mode == 0 && c.at("maintainMatrixScaling").get<bool>())
    fault(file, placeOf(c) + "maintainMatrixScaling is set while frameToFrameInterpolation is 0");
  checkLoopFlags(file, c);
}

void checkLightAnimation(const DecodedFile& file, const DecodedChunk& c) {
  for (const DecodedField& f : c.fields)
    if (f.name.ends_with("KeyCount") && intOf(f.value) < 0) fault(file, placeOf(c) + "negative " + f.name);
  checkNumSamples(file, c);
  static const char* const kTracks[] = {"colourKeys", "intensityKeys", "attenuationStartKeys",
                                        "attenuationEndKeys", "hotspotKeys", "falloffKeys"};
  for (const char* track : kTracks)
    if (c.find(track) != nullptr) checkTrack(file, c, track);
  // A negative multiplier carries its sign in the colour, never in the intensity.
  const Json& intensity = c.at("intensityKeys");
  for (std::size_t i = 0; i < intensity.size(); ++i)
    if (intensity[i]["value"].get<double>() < 0.0)
      fault(file, placeOf(c) + "intensityKeys[" + std::to_string(i) + "] is negative");
  checkLoopFlags(file, c);
}

}  // namespace zt2dump
