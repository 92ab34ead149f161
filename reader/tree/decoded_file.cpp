#include "decoded_file.h"

#include <stdexcept>

#include "format/chunk_kinds.h"
#include "format/code_page.h"
#include "host/inhouse/exceptions.h"

namespace ztexport {

const DecodedField* DecodedChunk::find(const std::string& fieldName) const {
  for (const DecodedField& f : fields)
    if (f.name == fieldName) return &f;
  return nullptr;
}

const Json& DecodedChunk::at(const std::string& fieldName) const {
  if (const DecodedField* f = find(fieldName)) return f->value;
  raiseError(std::out_of_range(name + " has no field " + fieldName));
}

std::string DecodedChunk::objectName() const {
  for (const DecodedChunk& child : children)
    if (child.decoded && (child.id == chunk_kind::kObject.id || child.id == chunk_kind::kAnimationHeader.id))
      if (const DecodedField* f = child.find("name"); f && f->value.is_string()) return f->value.get<std::string>();
  if (id != chunk_kind::kObject.id && id != chunk_kind::kAnimationHeader.id)
    if (const DecodedField* f = find("name"); f && f->value.is_string()) return f->value.get<std::string>();
  return {};
}

std::string chunkLabel(const DecodedChunk& chunk) {
  if (!chunk.known()) return "unknown chunk " + hexId(chunk.id);
  const std::string name = chunk.objectName();
  return name.empty() ? chunk.name : chunk.name + " \"" + codePageToUtf8(name) + "\"";
}

namespace {

void decodeTexts(Json& value) {
  if (value.is_string()) {
    value = codePageToUtf8(value.get_ref<const std::string&>());
  } else if (value.is_array() || value.is_object()) {
    for (Json& element : value) decodeTexts(element);
  }
}

void decodeTexts(std::vector<DecodedField>& fields) {
  for (DecodedField& f : fields) decodeTexts(f.value);
}

void decodeTexts(DecodedChunk& chunk) {
  decodeTexts(chunk.fields);
  for (DecodedChunk& child : chunk.children) decodeTexts(child);
}

}  // namespace

void decodeTexts(DecodedFile& file) {
  for (DecodedChunk& chunk : file.chunks) decodeTexts(chunk);
  decodeTexts(file.optionsFields);
}

const char* fileKindName(FileKind kind) {
  switch (kind) {
    case FileKind::Scene: return "scene";
    case FileKind::VertexData: return "vertexData";
    case FileKind::Options: return "options";
  }
  return "scene";
}

}  // namespace ztexport
