#include "decoded_file.h"

#include <stdexcept>

namespace zt2dump {

const DecodedField* DecodedChunk::find(const std::string& fieldName) const {
  for (const DecodedField& f : fields)
    if (f.name == fieldName) return &f;
  return nullptr;
}

const Json& DecodedChunk::at(const std::string& fieldName) const {
  if (const DecodedField* f = find(fieldName)) return f->value;
  throw std::out_of_range(name + " has no field " + fieldName);
}

const char* fileKindName(FileKind kind) {
  switch (kind) {
    case FileKind::Scene: return "scene";
    case FileKind::VertexData: return "vertexData";
    case FileKind::Options: return "options";
  }
  return "scene";
}

}  // namespace zt2dump
