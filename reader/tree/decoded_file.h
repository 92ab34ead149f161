// The reader's generic view of a file: the chunk tree with every field
// decoded under its name and its offset, or the options file's values.
// zt2dump's printers, validator and glTF conversion work from this tree; the
// typed structs of ztexport/reader.h are built from it. Not installed: the
// tree is the tools' view, the structs are the library's API.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "ztexport/reader.h"

namespace ztexport {

// Field values keep the order in which they stand in the file.
using Json = nlohmann::ordered_json;

struct DecodedField {
  std::string name;
  Json value;
  std::size_t offset = 0;  // file offset of the value's first byte (its tag)
  // Raw blocks and numeric sequences also keep their values typed, copied
  // straight from the bytes; with TreeDetail::Typed their `value` stays null.
  std::variant<std::monostate, Array<Vec3>, Array<std::uint16_t>, Array<std::int32_t>, Array<std::uint32_t>,
               Array<float>>
      typed;
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
  // The name a reader knows this chunk by: its ObjectChunk's or animation
  // header's name, or its own `name` (materials, textures); empty if none.
  std::string objectName() const;
};

// `MeshChunk "Box01"`, or the bare kind name when the chunk carries no name;
// "unknown chunk 0x10100" for an id not known. The name is decoded from the
// host's code page: a label is for messages.
std::string chunkLabel(const DecodedChunk& chunk);

// Whether the large arrays are also decoded into JSON values (the printers
// need them) or only kept typed (the typed readers).
enum class TreeDetail { Full, Typed };

struct DecodedFile {
  std::string path;
  FileKind kind = FileKind::Scene;
  std::size_t size = 0;
  std::vector<DecodedChunk> chunks;  // scene and per-vertex files
  std::int32_t optionsVersion = 0;   // options file
  std::vector<DecodedField> optionsFields;
};

// Turns every string of the tree from the bytes of the host's code page into
// UTF-8 text (format/code_page.h), for a tool that shows the tree: the
// printers, the validator. The typed readers and the diff keep the bytes.
void decodeTexts(DecodedFile& file);

}  // namespace ztexport
