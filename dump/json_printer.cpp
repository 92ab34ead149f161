#include "dump/json_printer.h"

#include "format/chunk_kinds.h"

namespace zt2dump {

namespace {

Json fieldsObject(const std::vector<DecodedField>& fields) {
  Json o = Json::object();
  for (const DecodedField& f : fields) o[f.name] = f.value;
  return o;
}

}  // namespace

Json toJson(const DecodedChunk& chunk) {
  Json j = Json::object();
  j["id"] = chunk.id;
  j["idHex"] = hexId(chunk.id);
  j["name"] = chunk.known() ? Json(chunk.name) : Json(nullptr);
  j["version"] = chunk.version;
  j["offset"] = chunk.offset;
  j["length"] = chunk.length;
  j["decoded"] = chunk.decoded;
  if (!chunk.note.empty()) j["note"] = chunk.note;
  j["fields"] = fieldsObject(chunk.fields);
  Json children = Json::array();
  for (const DecodedChunk& c : chunk.children) children.push_back(toJson(c));
  j["children"] = std::move(children);
  return j;
}

Json toJson(const DecodedFile& file) {
  Json j = Json::object();
  j["file"] = file.path;
  j["kind"] = fileKindName(file.kind);
  j["size"] = file.size;
  if (file.kind == FileKind::Options) {
    j["version"] = file.optionsVersion;
    j["fields"] = fieldsObject(file.optionsFields);
    return j;
  }
  Json chunks = Json::array();
  for (const DecodedChunk& c : file.chunks) chunks.push_back(toJson(c));
  j["chunks"] = std::move(chunks);
  return j;
}

void printJson(std::ostream& out, const DecodedFile& file) {
  // Names come decoded from the host's code page (decodeTexts); a tree that
  // was not still gives a readable document, bytes that are not UTF-8 as U+FFFD.
  out << toJson(file).dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
}

}  // namespace zt2dump
