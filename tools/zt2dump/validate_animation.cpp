// Animation checks: keys in strictly increasing sample order from sample 0,
// every sample inside the sampled span, modes within their range.
#include <cmath>

#include "chunk_schema.h"
#include "scene_checks.h"
#include "validation_support.h"

namespace zt2dump {

namespace {

std::string nodeOf(const DecodedChunk& animation) {
  const DecodedChunk* header = childWithId(animation, chunk_kind::kAnimationHeader.id);
  return header != nullptr ? " (node \"" + header->at("name").get<std::string>() + "\")" : std::string();
}

void checkTrack(const DecodedFile& file, const DecodedChunk& c, const char* track, std::int64_t numSamples,
                bool needsKey) {
  const std::string place = where(c) + nodeOf(c) + ": " + track;
  const Json& keys = c.at(track);
  if (needsKey && keys.empty()) fault(file, place + " has no key");
  std::int64_t previous = -1;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const std::int64_t sample = intOf(keys[i]["sample"]);
    const std::string key = place + "[" + std::to_string(i) + "]";
    if (i == 0 && sample != 0) fault(file, key + " is at sample " + std::to_string(sample) + ", not 0");
    if (sample <= previous)
      fault(file, key + " is at sample " + std::to_string(sample) + ", not after the previous key's " +
                      std::to_string(previous));
    if (sample >= numSamples)
      fault(file, key + " is at sample " + std::to_string(sample) + ", outside the " + std::to_string(numSamples) +
                      " samples");
    for (auto it = keys[i].begin(); it != keys[i].end(); ++it) {
      if (it.key() == "sample") continue;
      const Json flat = it.value().is_array() ? it.value().flatten() : Json::object({{"", it.value()}});
      for (const auto& x : flat)
        if (!x.is_number() || !std::isfinite(x.get<double>())) fault(file, key + " holds a value that is not finite");
    }
    previous = sample;
  }
}

}  // namespace

void checkTransformAnimation(const DecodedFile& file, const DecodedChunk& c) {
  const std::int64_t numSamples = intOf(c.at("numSamples"));
  checkTrack(file, c, "keys", numSamples, true);
  checkTrack(file, c, "visibilityKeys", numSamples, true);
  const std::int64_t mode = intOf(c.at("frameToFrameInterpolation"));
  if (mode < 0 || mode > 2)
    fault(file, where(c) + nodeOf(c) + ": frameToFrameInterpolation " + std::to_string(mode) + " is not 0, 1 or 2");
  if (mode == 0 && c.at("maintainMatrixScaling").get<bool>())
    fault(file, where(c) + nodeOf(c) + ": maintainMatrixScaling is set while frameToFrameInterpolation is 0");
  const DecodedChunk* header = childWithId(c, chunk_kind::kAnimationHeader.id);
  if (header != nullptr && !header->at("loop").get<bool>() && c.at("loopInterpolation").get<bool>())
    fault(file, where(c) + nodeOf(c) + ": loopInterpolation is set while loop is not");
}

void checkLightAnimation(const DecodedFile& file, const DecodedChunk& c) {
  const std::int64_t numSamples = intOf(c.at("numSamples"));
  if (numSamples < 0) fault(file, where(c) + nodeOf(c) + ": negative numSamples " + std::to_string(numSamples));
  static const char* const kTracks[] = {"colourKeys", "intensityKeys", "attenuationStartKeys",
                                        "attenuationEndKeys", "hotspotKeys", "falloffKeys"};
  for (const char* track : kTracks)
    if (c.find(track) != nullptr) checkTrack(file, c, track, numSamples, false);
  for (const DecodedField& f : c.fields)
    if (f.name.ends_with("KeyCount") && intOf(f.value) < 0)
      fault(file, where(c) + nodeOf(c) + ": negative " + f.name);
}

}  // namespace zt2dump
