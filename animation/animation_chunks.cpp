#include "animation/animation_chunks.h"

#include <cstdint>

#include "animation/track_rules.h"

namespace {

// The first rule a record breaks, checked in the order asked.
class FirstFault {
 public:
  explicit FirstFault(int numSamples) : numSamples_(numSamples), fault_(numSamplesFault(numSamples)) {}

  template <typename Key>
  FirstFault& track(const char* name, const std::vector<Key>& keys) {
    if (!fault_.empty()) return *this;
    std::vector<std::int64_t> samples;
    samples.reserve(keys.size());
    for (const Key& k : keys) samples.push_back(k.sample);
    fault_ = trackFault(name, samples, numSamples_);
    return *this;
  }

  FirstFault& rule(bool broken, const char* what) {
    if (fault_.empty() && broken) fault_ = what;
    return *this;
  }

  std::string text() const { return fault_; }

 private:
  int numSamples_;
  std::string fault_;
};

bool hasAttenuation(LightKind kind) { return kind != LightKind::Directional; }
bool hasCone(LightKind kind) { return kind == LightKind::Spot; }

// Light tracks: an int key count, then per key its sample index and value.
void writeScalarTrack(T_MemoryFile& file, const std::vector<ScalarKey>& keys) {
  file << static_cast<int>(keys.size());
  for (const ScalarKey& k : keys) file << static_cast<unsigned int>(k.sample) << k.value;
}

}  // namespace

std::vector<ScalarKey> scalarKeys(const KeySeries<float>& reduced) {
  std::vector<ScalarKey> keys;
  keys.reserve(reduced.size());
  for (std::size_t k = 0; k < reduced.size(); ++k) keys.push_back({reduced.indices[k], reduced.values[k]});
  return keys;
}

std::vector<ColorKey> colorKeys(const KeySeries<SampleColor>& reduced) {
  std::vector<ColorKey> keys;
  keys.reserve(reduced.size());
  for (std::size_t k = 0; k < reduced.size(); ++k) keys.push_back({reduced.indices[k], reduced.values[k]});
  return keys;
}

std::string TransformAnimation::validate() const {
  return FirstFault(numSamples)
      .track("keys", keys)
      .track("visibilityKeys", visibilityKeys)
      .rule(loopInterpolation && !header.loop, "loopInterpolation is set while loop is not")
      .rule(maintainMatrixScaling && frameToFrameInterpolation == FrameInterpolation::None,
            "maintainMatrixScaling is set while frameToFrameInterpolation is 0")
      .text();
}

std::string LightAnimation::validate() const {
  FirstFault fault(numSamples);
  fault.track("colourKeys", colourKeys).track("intensityKeys", intensityKeys);
  if (hasAttenuation(kind))
    fault.track("attenuationStartKeys", attenuationStartKeys).track("attenuationEndKeys", attenuationEndKeys);
  else
    fault.rule(!attenuationStartKeys.empty() || !attenuationEndKeys.empty(), "a directional light has attenuation keys");
  if (hasCone(kind))
    fault.track("hotspotKeys", hotspotKeys).track("falloffKeys", falloffKeys);
  else
    fault.rule(!hotspotKeys.empty() || !falloffKeys.empty(), "a light other than a spot has cone keys");
  return fault.rule(loopInterpolation && !header.loop, "loopInterpolation is set while loop is not").text();
}

T_MemoryFile& operator<<(T_MemoryFile& file, const AnimationHeader& header) {
  file.createChunk(chunk_kind::kAnimationHeader);
  file << header.name << header.sampleRate << header.loop;
  file.closeChunk();
  return file;
}

T_MemoryFile& operator<<(T_MemoryFile& file, const TransformAnimation& record) {
  checkRecordBeforeWriting(record);
  file.createChunk(chunk_kind::kTransformAnimation);
  file << record.header << record.parentName << record.loopInterpolation
       << static_cast<unsigned int>(record.numSamples);
  file << static_cast<unsigned int>(record.keys.size());
  for (const TransformKey& k : record.keys) file << static_cast<unsigned int>(k.sample) << k.matrix;
  file << static_cast<unsigned int>(record.visibilityKeys.size());
  for (const ScalarKey& k : record.visibilityKeys) file << static_cast<unsigned int>(k.sample) << k.value;
  file << static_cast<unsigned int>(record.loopToFrame) << static_cast<int>(record.frameToFrameInterpolation)
       << record.maintainMatrixScaling;
  file.closeChunk();
  return file;
}

T_MemoryFile& operator<<(T_MemoryFile& file, const LightAnimation& record) {
  checkRecordBeforeWriting(record);
  file.createChunk(record.kind == LightKind::Omni          ? chunk_kind::kOmniLightAnimation
                   : record.kind == LightKind::Directional ? chunk_kind::kDirectionalLightAnimation
                                                           : chunk_kind::kSpotLightAnimation);
  file << record.header << record.numSamples << record.loopInterpolation;
  file << static_cast<int>(record.colourKeys.size());
  for (const ColorKey& k : record.colourKeys) {
    file << static_cast<unsigned int>(k.sample);
    for (float c : k.colour) file << c;
  }
  writeScalarTrack(file, record.intensityKeys);
  if (hasAttenuation(record.kind)) {
    writeScalarTrack(file, record.attenuationStartKeys);
    writeScalarTrack(file, record.attenuationEndKeys);
  }
  if (hasCone(record.kind)) {
    writeScalarTrack(file, record.hotspotKeys);
    writeScalarTrack(file, record.falloffKeys);
  }
  file << static_cast<unsigned int>(record.loopToFrame);
  file.closeChunk();
  return file;
}
