// The animation records and their chunks: the header every animation chunk
// opens with, one TransformAnimationChunk per exported node and one light
// animation chunk per light. docs/zt2-format.md gives the layouts.
//
// Sample indices count samples from 0 at the start of the sampled span, one
// sample per frame at the header's sampleRate. loopToFrame stays a frame of
// the scene's own rate: it is stored for the reader, never turned into a
// sample index.
#pragma once

#include <string>
#include <vector>

#include "animation/key_reduction.h"
#include "format/memory_file.h"
#include "host/inhouse/matrix.h"
#include "options/export_options.h"
#include "scene_objects/light.h"

// The common first part of every animation record.
struct AnimationHeader {
  std::string name;    // the node's name
  int sampleRate = 0;  // frames per second
  bool loop = false;
};

struct TransformKey {
  int sample = 0;
  M_Matrix4x3Template<float> matrix;  // exportTransform at the key's sample time
};

struct ScalarKey {
  int sample = 0;
  float value = 0.0f;
};

struct ColorKey {
  int sample = 0;
  SampleColor colour{};  // red, green, blue, alpha on a 0..255 scale
};

struct TransformAnimation {
  AnimationHeader header;
  std::vector<TransformKey> keys;
  int numSamples = 0;
  int loopToFrame = 0;  // scene frames
  bool loopInterpolation = false;
  std::string parentName;  // the export parent; empty for the scene root
  std::vector<ScalarKey> visibilityKeys;
  FrameInterpolation frameToFrameInterpolation = FrameInterpolation::None;
  bool maintainMatrixScaling = false;

  // "" when the record keeps the rules of track_rules.h and its flags agree
  // (no loop interpolation without loop, no kept scaling without a mode).
  std::string validate() const;
};

// One record for the three light kinds, as LightRecord is: `kind` decides
// which tracks are sampled and written (omni and spot add attenuation, spot
// the cone angles; the host's ambient kind is written as a spot).
struct LightAnimation {
  LightKind kind = LightKind::Omni;
  AnimationHeader header;
  int loopToFrame = 0;  // scene frames
  int numSamples = 0;
  bool loopInterpolation = false;
  std::vector<ColorKey> colourKeys;
  std::vector<ScalarKey> intensityKeys;
  std::vector<ScalarKey> attenuationStartKeys;  // omni and spot
  std::vector<ScalarKey> attenuationEndKeys;    // omni and spot
  std::vector<ScalarKey> hotspotKeys;           // spot, radians
  std::vector<ScalarKey> falloffKeys;           // spot, radians

  // "" when every track of the record's kind keeps the rules of
  // track_rules.h and the tracks of other kinds are empty.
  std::string validate() const;
};

// The keys of a reduced series, in order.
std::vector<ScalarKey> scalarKeys(const KeySeries<float>& reduced);
std::vector<ColorKey> colorKeys(const KeySeries<SampleColor>& reduced);

// AnimationHeaderChunk: name, sample rate, loop.
T_MemoryFile& operator<<(T_MemoryFile& file, const AnimationHeader& header);
// TransformAnimationChunk.
T_MemoryFile& operator<<(T_MemoryFile& file, const TransformAnimation& record);
// The light animation chunk of the record's kind.
T_MemoryFile& operator<<(T_MemoryFile& file, const LightAnimation& record);
