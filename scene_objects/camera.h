// Camera nodes: field of view and clipping planes, taken at the start time.
#pragma once

#include "format/memory_file.h"
#include "format/object_record.h"

class SceneExporter;
class INode;

// The smallest near plane the file may hold.
inline constexpr float minFrontPlane = 0.001f;

struct CameraRecord {
  ObjectRecord object;
  float fov = 0.0f;  // radians
  float nearPlane = 0.0f;
  float farPlane = 0.0f;
};

T_MemoryFile& operator<<(T_MemoryFile& file, const CameraRecord& record);

void exportCamera(SceneExporter& exporter, INode* node);
