// Animation chunks: the shared header, node transforms and light parameters.
// Keys are decoded as objects ({"sample": ..., "transform": ...}) so that a
// reader needs no knowledge of how many values make one key.
#include <string>

#include "chunk_layouts.h"
#include "chunk_reader.h"

namespace ztexport {

namespace {

enum class KeyValue { Matrix, Float, Colour };

// A key count already read, then that many (sample index, value) keys.
void keysField(ChunkReader& r, const char* name, std::size_t count, KeyValue kind) {
  const std::size_t at = r.tell();
  r.setReading(name);
  // Sample index (5 bytes) plus the smallest value (a float, 5 bytes).
  r.requireRoom(count, 10, "keys");
  Json keys = Json::array();
  for (std::size_t i = 0; i < count; ++i) {
    r.setReading(std::string(name) + "[" + std::to_string(i) + "]");
    Json key = Json::object();
    key["sample"] = r.uintValue();
    switch (kind) {
      case KeyValue::Matrix: key["transform"] = r.matrixValue(); break;
      case KeyValue::Float: key["value"] = r.floatValue(); break;
      case KeyValue::Colour: {
        Json c = Json::array();
        for (int k = 0; k < 4; ++k) c.push_back(r.floatValue());
        key["colour"] = std::move(c);
        break;
      }
    }
    keys.push_back(std::move(key));
  }
  r.addField(name, std::move(keys), at);
}

std::size_t nonNegative(std::int32_t n) { return n < 0 ? 0 : static_cast<std::size_t>(n); }

// The light tracks are each an int key count, then the keys.
void lightTrack(ChunkReader& r, const char* countName, const char* keysName, KeyValue kind) {
  keysField(r, keysName, nonNegative(r.intField(countName)), kind);
}

void lightAnimationStart(ChunkReader& r) {
  r.nestedChunk();
  r.intField("numSamples");
  r.boolField("loopInterpolation");
  lightTrack(r, "colourKeyCount", "colourKeys", KeyValue::Colour);
  lightTrack(r, "intensityKeyCount", "intensityKeys", KeyValue::Float);
}

}  // namespace

void decodeAnimationHeader(ChunkReader& r, DecodedChunk&) {
  r.stringField("name");
  r.intField("sampleRate");
  r.boolField("loop");
}

void decodeTransformAnimation(ChunkReader& r, DecodedChunk&) {
  r.nestedChunk();
  r.stringField("parentName");
  r.boolField("loopInterpolation");
  r.uintField("numSamples");
  keysField(r, "keys", r.uintField("keyCount"), KeyValue::Matrix);
  keysField(r, "visibilityKeys", r.uintField("visibilityKeyCount"), KeyValue::Float);
  r.uintField("loopToFrame");
  r.intField("frameToFrameInterpolation");
  r.boolField("maintainMatrixScaling");
}

void decodeDirectionalLightAnimation(ChunkReader& r, DecodedChunk&) {
  lightAnimationStart(r);
  r.uintField("loopToFrame");
}

void decodeOmniLightAnimation(ChunkReader& r, DecodedChunk&) {
  lightAnimationStart(r);
  lightTrack(r, "attenuationStartKeyCount", "attenuationStartKeys", KeyValue::Float);
  lightTrack(r, "attenuationEndKeyCount", "attenuationEndKeys", KeyValue::Float);
  r.uintField("loopToFrame");
}

void decodeSpotLightAnimation(ChunkReader& r, DecodedChunk&) {
  lightAnimationStart(r);
  lightTrack(r, "attenuationStartKeyCount", "attenuationStartKeys", KeyValue::Float);
  lightTrack(r, "attenuationEndKeyCount", "attenuationEndKeys", KeyValue::Float);
  lightTrack(r, "hotspotKeyCount", "hotspotKeys", KeyValue::Float);
  lightTrack(r, "falloffKeyCount", "falloffKeys", KeyValue::Float);
  r.uintField("loopToFrame");
}

}  // namespace ztexport
