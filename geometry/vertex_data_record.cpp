#include "geometry/vertex_data_record.h"

#include <cstdio>

#include "plugin/scene_exporter.h"

T_MemoryFile& operator<<(T_MemoryFile& file, const VertexDataRecord& record) {
  file.createChunk(chunk_kind::kVertexData);
  file << record.nodeNames << record.boneNames << record.influenceStart << record.influenceCount
       << record.influenceBone << record.influenceWeight << record.groupVertexCount() << record.groupVertexStart();
  file.closeChunk();
  return file;
}

std::string vertexDataFileName(const SceneExporter& exporter) {
  const char* format = "%s%s.skd";
  const int n = std::snprintf(nullptr, 0, format, exporter.writtenPath.c_str(), exporter.writtenName.c_str());
  std::string name(static_cast<std::size_t>(n > 0 ? n : 0), '\0');
  std::snprintf(name.data(), name.size() + 1, format, exporter.writtenPath.c_str(), exporter.writtenName.c_str());
  return name;
}

bool saveVertexDataFile(SceneExporter& exporter, const VertexDataRecord& record) {
  T_MemoryFile file(8192);
  file << record;
  return file.stage(vertexDataFileName(exporter).c_str(), exporter.staging).ok();
}
