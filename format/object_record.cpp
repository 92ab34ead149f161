#include "format/object_record.h"

T_MemoryFile& operator<<(T_MemoryFile& file, const ObjectRecord& record) {
  file.createChunk(chunk_kind::kObject);
  file << record.name() << record.parentName() << record.transform() << record.hasParent() << record.userProperties();
  file.closeChunk();
  return file;
}
