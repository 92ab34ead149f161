// Light nodes: omni, directional and spot chunks (the host's ambient kind is
// written as a spot), taken at the start time.
#pragma once

#include <array>

#include "format/memory_file.h"
#include "format/object_record.h"

class SceneExporter;
class INode;

// Degrees to radians, in single precision.
inline constexpr float kDegreesToRadians = 0.017453292f;

struct LightState;

// A light's state in the file's units, as both the static light chunk and
// the light animation write it: the colour on a 0..255 scale carries the sign
// of a negative multiplier, the intensity is the multiplier's absolute value,
// attenuation distances are rescaled, cone angles in radians.
struct LightValues {
  std::array<float, 4> colour{0.0f, 0.0f, 0.0f, 255.0f};
  float intensity = 0.0f;
  float attenuationStart = 0.0f;
  float attenuationEnd = 0.0f;
  float hotspot = 0.0f;
  float falloff = 0.0f;
};

LightValues lightValues(const LightState& state, float rescaleFactor);

enum class LightKind { Omni, Directional, Spot };

struct LightRecord {
  LightKind kind = LightKind::Omni;
  ObjectRecord object;
  LightValues values;  // attenuation for omni and spot, cone angles for spot
};

// Writes the chunk of the record's kind.
T_MemoryFile& operator<<(T_MemoryFile& file, const LightRecord& record);

// The chunk kind of a host light type; false for a type that has none.
bool lightKindOf(int lightType, LightKind& kind);

void exportLight(SceneExporter& exporter, INode* node);
