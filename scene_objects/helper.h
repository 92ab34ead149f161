// Helper nodes: the object header and the helper's class name.
#pragma once

#include <string>

#include "format/memory_file.h"
#include "format/object_record.h"

class SceneExporter;
class INode;

struct HelperRecord {
  ObjectRecord object;
  std::string className;
};

T_MemoryFile& operator<<(T_MemoryFile& file, const HelperRecord& record);

void exportHelper(SceneExporter& exporter, INode* node);
