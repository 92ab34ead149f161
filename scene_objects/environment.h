// The scene's ambient and background colours, at the head of the file.
#pragma once

#include "format/memory_file.h"
#include "host/inhouse/color.h"
#include "host/max_types.h"

class SceneExporter;

struct EnvironmentRecord {
  G_Color ambientColour{0, 0, 0, 255};
  G_Color backgroundColour{0, 0, 0, 255};
};

// Channel by channel: times 255, truncated toward zero, low 8 bits; alpha 255.
G_Color toGColor(const Color& c);

T_MemoryFile& operator<<(T_MemoryFile& file, const EnvironmentRecord& record);

void exportEnvironment(SceneExporter& exporter);
