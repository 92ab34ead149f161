// Light nodes: omni, directional and spot chunks (the host's ambient kind is
// written as a spot), taken at the start time.
#pragma once

#include "format/memory_file.h"
#include "format/object_record.h"

class SceneExporter;
class INode;

// Degrees to radians, in single precision.
inline constexpr float kDegreesToRadians = 0.017453292f;

enum class LightKind { Omni, Directional, Spot };

struct LightRecord {
  LightKind kind = LightKind::Omni;
  ObjectRecord object;
  float colour[4] = {0.0f, 0.0f, 0.0f, 255.0f};  // 0..255
  float intensity = 0.0f;
  float attenuationStart = 0.0f;  // omni and spot
  float attenuationEnd = 0.0f;    // omni and spot
  float hotspot = 0.0f;           // spot, radians
  float falloff = 0.0f;           // spot, radians
};

// Writes the chunk of the record's kind.
T_MemoryFile& operator<<(T_MemoryFile& file, const LightRecord& record);

void exportLight(SceneExporter& exporter, INode* node);
