#include "scene_objects/environment.h"

#include "plugin/scene_exporter.h"

static std::uint8_t channel(float v) { return static_cast<std::uint8_t>(static_cast<int>(v * 255.0f) & 0xFF); }

G_Color toGColor(const Color& c) { return G_Color(channel(c.r), channel(c.g), channel(c.b), 255); }

T_MemoryFile& operator<<(T_MemoryFile& file, const EnvironmentRecord& record) {
  file.createChunk(chunk_kind::kEnvironment);
  file << record.ambientColour.r << record.ambientColour.g << record.ambientColour.b << record.ambientColour.a;
  file << record.backgroundColour.r << record.backgroundColour.g << record.backgroundColour.b
       << record.backgroundColour.a;
  file.closeChunk();
  return file;
}

void exportEnvironment(SceneExporter& exporter) {
  EnvironmentRecord record;
  const TimeValue t = exporter.startTime;
  Interval valid = FOREVER;
  record.backgroundColour = toGColor(exporter.host->GetBackGround(t, valid));
  valid = FOREVER;
  record.ambientColour = toGColor(exporter.host->GetAmbient(t, valid));
  exporter.sceneFile << record;
}
