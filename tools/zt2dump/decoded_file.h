// What zt2dump makes of a file: the chunk tree with every field decoded under
// its name, or the options file's values. The printers and the validator work
// from this tree only, never from the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace zt2dump {

// Field values keep the order in which they stand in the file.
using Json = nlohmann::ordered_json;

struct DecodedField {
  std::string name;
  Json value;
  std::size_t offset = 0;  // file offset of the value's first byte (its tag)
};

struct DecodedChunk {
  std::uint32_t id = 0;
  std::uint32_t version = 0;
  std::uint32_t length = 0;     // body bytes
  std::size_t offset = 0;       // file offset of the chunk tag
  std::size_t bodyOffset = 0;
  std::string name;             // empty when the id is not known
  bool decoded = false;         // false: the body was skipped
  std::string note;             // why a known chunk was skipped
  std::vector<DecodedField> fields;
  std::vector<DecodedChunk> children;

  // Fields and nested chunks interleave (a texture follows its layer flag);
  // `items` keeps the file order for the text printer.
  struct Item {
    bool isChild = false;
    std::size_t index = 0;
  };
  std::vector<Item> items;

  bool known() const { return !name.empty(); }
  std::size_t end() const { return bodyOffset + length; }
  // The field `fieldName`, or nullptr.
  const DecodedField* find(const std::string& fieldName) const;
  // The field's value; throws std::out_of_range when the layout lacks it.
  const Json& at(const std::string& fieldName) const;
};

enum class FileKind { Scene, VertexData, Options };

const char* fileKindName(FileKind kind);

struct DecodedFile {
  std::string path;
  FileKind kind = FileKind::Scene;
  std::size_t size = 0;
  std::vector<DecodedChunk> chunks;  // scene and per-vertex files
  std::int32_t optionsVersion = 0;   // options file
  std::vector<DecodedField> optionsFields;
};

}  // namespace zt2dump
