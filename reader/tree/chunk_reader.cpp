#include "chunk_reader.h"

#include <cstring>

#include "chunk_schema.h"
#include "format/code_page.h"
#include "host/inhouse/exceptions.h"

namespace ztexport {

namespace {

Json floatJson(float v) { return Json(static_cast<double>(v)); }

// Smallest encoded size of one typed value, used to refuse a count that
// could not fit before anything is allocated for it.
std::size_t minimumSize(BasicType t) {
  switch (t) {
    case BT_Bool:
    case BT_UChar: return 2;
    case BT_Matrix4x3: return 49;
    default: return 5;
  }
}

const char* typeName(BasicType t) {
  const char* name = basicTypeName(t);
  return name ? name : "a value";
}

}  // namespace

DecodedChunk ChunkReader::readChunk() {
  const std::size_t start = file_.tell();
  const ChunkHeader h = file_.readChunkHeader();
  const std::size_t limit = frames_.empty() ? file_.size() : frames_.back().end;
  if (h.bodyOffset > limit) file_.fail(start, "unexpected end of chunk body while reading a chunk header");
  if (h.end() > limit)
    file_.fail(start, "chunk " + hexId(h.id) + " claims " + std::to_string(h.length) + " bytes but its parent has only " +
                          std::to_string(limit - h.bodyOffset) + " left");
  DecodedChunk c;
  c.id = h.id;
  c.version = h.version;
  c.length = h.length;
  c.offset = start;
  c.bodyOffset = h.bodyOffset;
  const ChunkKind* kind = findChunkKind(h.id);
  if (kind == nullptr) {
    file_.seek(h.end());
    return c;
  }
  c.name = kind->info->name;
  if (h.version != kind->info->version) {
    // Another version may lay its fields out differently: show, never guess.
    c.note = "version " + std::to_string(h.version) + " is not known (this tool reads version " +
             std::to_string(kind->info->version) + "), body skipped";
    file_.seek(h.end());
    return c;
  }
  c.decoded = true;
  decodeWithin(c, h.end(), c.name + " at offset " + std::to_string(start), c.name, [&] { kind->decode(*this, c); });
  return c;
}

std::vector<DecodedChunk> ChunkReader::readTopLevelChunks() {
  std::vector<DecodedChunk> chunks;
  while (!file_.atEnd()) chunks.push_back(readChunk());
  return chunks;
}

void ChunkReader::readLooseValues(DecodedChunk& target, std::size_t end, const std::string& label,
                                  const std::string& pathLabel, const std::function<void()>& decode) {
  decodeWithin(target, end, label, pathLabel, decode);
}

void ChunkReader::decodeWithin(DecodedChunk& target, std::size_t end, const std::string& label,
                               const std::string& pathLabel, const std::function<void()>& decode) {
  frames_.push_back(Frame{&target, end, label, pathLabel, ""});
  const auto decodeAll = [&] {
    decode();
    if (file_.tell() < end) {
      frames_.back().reading.clear();
      file_.fail(file_.tell(), std::to_string(end - file_.tell()) + " bytes left over after the last field");
    }
  };
#ifdef __cpp_exceptions
  try {
    decodeAll();
  } catch (const T_Exception& e) {
    const auto* bad = dynamic_cast<const T_FileException_BadData*>(&e);
    FormatError error(FormatError::Kind::Corrupt, file_.name(), e.what() + context(), bad ? bad->offset() : 0,
                      chunkPath());
    frames_.pop_back();
    throw error;
  } catch (...) {
    frames_.pop_back();
    throw;
  }
#else
  // The same words as the catch above; a fault stops the reading, so the
  // frames need no popping on the way.
  const FaultWording wording([this](const std::string& what) { return what + context(); });
  decodeAll();
#endif
  frames_.pop_back();
}

std::string ChunkReader::context() const {
  std::string s = " (";
  const Frame& inner = frames_.back();
  if (!inner.reading.empty()) s += "reading " + inner.reading + " ";
  s += "inside " + inner.label;
  for (auto it = frames_.rbegin() + 1; it != frames_.rend(); ++it) s += ", in " + it->label;
  return s + ")";
}

std::string ChunkReader::chunkPath() const {
  std::string path;
  for (std::size_t i = 0; i < frames_.size(); ++i) {
    const DecodedChunk& c = *frames_[i].chunk;
    std::string name = c.objectName();
    // A name field read before the fault, in the object chunk being read.
    if (name.empty() && i + 1 < frames_.size()) {
      const DecodedChunk& inner = *frames_[i + 1].chunk;
      if (inner.id == chunk_kind::kObject.id || inner.id == chunk_kind::kAnimationHeader.id)
        if (const DecodedField* f = inner.find("name"); f && f->value.is_string()) name = f->value.get<std::string>();
    }
    if (i > 0) path += " > ";
    path += frames_[i].pathLabel;
    if (!name.empty()) path += " \"" + codePageToUtf8(name) + "\"";
  }
  if (!frames_.back().reading.empty()) path += " > " + frames_.back().reading;
  return path;
}

std::size_t ChunkReader::bodyLeft() const {
  const std::size_t end = frames_.back().end;
  return file_.tell() < end ? end - file_.tell() : 0;
}

void ChunkReader::checkInside(std::size_t start, const char* what) {
  if (file_.tell() > frames_.back().end) {
    file_.seek(start);
    file_.fail(start, std::string("unexpected end of chunk body while reading ") + what);
  }
}

void ChunkReader::checkStart(const char* what) {
  // Checked before the tag, so that a value missing at the end of a body is
  // reported as such rather than as the next chunk's tag.
  if (file_.tell() >= frames_.back().end)
    file_.fail(file_.tell(), std::string("unexpected end of chunk body while reading ") + what);
}

void ChunkReader::requireRoom(std::size_t count, std::size_t bytesEach, const char* what) {
  const std::size_t left = bodyLeft();
  if (count > left / bytesEach)
    file_.fail(file_.tell(), std::to_string(count) + " " + what + " need at least " + std::to_string(count * bytesEach) +
                                 " bytes but only " + std::to_string(left) + " remain in the chunk body");
}

std::size_t ChunkReader::beginField(const char* name) {
  setReading(name);
  return file_.tell();
}

void ChunkReader::addField(const char* name, Json value, std::size_t offset) {
  addField(name, std::move(value), offset, {});
}

void ChunkReader::addField(const char* name, Json value, std::size_t offset, decltype(DecodedField::typed) typed) {
  DecodedChunk& c = *frames_.back().chunk;
  c.fields.push_back(DecodedField{name, std::move(value), offset, std::move(typed)});
  c.items.push_back(DecodedChunk::Item{false, c.fields.size() - 1});
}

// --- single values ---

Json ChunkReader::boolValue() {
  checkStart("a bool");
  const std::size_t at = file_.tell();
  const bool v = file_.readBool();
  checkInside(at, "a bool");
  return Json(v);
}

Json ChunkReader::intValue() {
  checkStart("an int");
  const std::size_t at = file_.tell();
  const std::int32_t v = file_.readInt();
  checkInside(at, "an int");
  return Json(v);
}

Json ChunkReader::uintValue() {
  checkStart("an unsigned int");
  const std::size_t at = file_.tell();
  const std::uint32_t v = file_.readUInt();
  checkInside(at, "an unsigned int");
  return Json(v);
}

Json ChunkReader::floatValue() {
  checkStart("a float");
  const std::size_t at = file_.tell();
  const float v = file_.readFloat();
  checkInside(at, "a float");
  return floatJson(v);
}

Json ChunkReader::matrixValue() {
  checkStart("a matrix");
  const std::size_t at = file_.tell();
  const M_Matrix4x3Template<float> m = file_.readMatrix();
  checkInside(at, "a matrix");
  Json rows = Json::array();
  for (int r = 0; r < 4; ++r) rows.push_back(Json::array({floatJson(m[r][0]), floatJson(m[r][1]), floatJson(m[r][2])}));
  return rows;
}

// --- fields ---

bool ChunkReader::boolField(const char* name) {
  const std::size_t at = beginField(name);
  Json v = boolValue();
  const bool b = v.get<bool>();
  addField(name, std::move(v), at);
  return b;
}

std::uint8_t ChunkReader::ucharField(const char* name) {
  const std::size_t at = beginField(name);
  checkStart("an unsigned char");
  const std::uint8_t v = file_.readUChar();
  checkInside(at, "an unsigned char");
  addField(name, Json(v), at);
  return v;
}

std::int32_t ChunkReader::intField(const char* name) {
  const std::size_t at = beginField(name);
  Json v = intValue();
  const auto i = v.get<std::int32_t>();
  addField(name, std::move(v), at);
  return i;
}

std::uint32_t ChunkReader::uintField(const char* name) {
  const std::size_t at = beginField(name);
  Json v = uintValue();
  const auto u = v.get<std::uint32_t>();
  addField(name, std::move(v), at);
  return u;
}

float ChunkReader::floatField(const char* name) {
  const std::size_t at = beginField(name);
  checkStart("a float");
  const float f = file_.readFloat();
  checkInside(at, "a float");
  addField(name, floatJson(f), at);
  return f;
}

std::string ChunkReader::stringField(const char* name) {
  const std::size_t at = beginField(name);
  checkStart("a string");
  std::string s = file_.readString();
  checkInside(at, "a string");
  addField(name, Json(s), at);
  return s;
}

void ChunkReader::matrixField(const char* name) {
  const std::size_t at = beginField(name);
  addField(name, matrixValue(), at);
}

void ChunkReader::floatsField(const char* name, std::size_t count) {
  const std::size_t at = beginField(name);
  requireRoom(count, minimumSize(BT_Float), "floats");
  Json a = Json::array();
  for (std::size_t i = 0; i < count; ++i) a.push_back(floatValue());
  addField(name, std::move(a), at);
}

void ChunkReader::ucharsField(const char* name, std::size_t count) {
  const std::size_t at = beginField(name);
  requireRoom(count, minimumSize(BT_UChar), "unsigned chars");
  Json a = Json::array();
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t v = file_.tell();
    checkStart("an unsigned char");
    a.push_back(file_.readUChar());
    checkInside(v, "an unsigned char");
  }
  addField(name, std::move(a), at);
}

void ChunkReader::uintsField(const char* name, std::size_t count) {
  const std::size_t at = beginField(name);
  requireRoom(count, minimumSize(BT_UInt), "unsigned ints");
  Json a = Json::array();
  for (std::size_t i = 0; i < count; ++i) a.push_back(uintValue());
  addField(name, std::move(a), at);
}

void ChunkReader::stringsField(const char* name, std::size_t count) {
  const std::size_t at = beginField(name);
  requireRoom(count, minimumSize(BT_String), "strings");
  Json a = Json::array();
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t v = file_.tell();
    checkStart("a string");
    a.push_back(file_.readString());
    checkInside(v, "a string");
  }
  addField(name, std::move(a), at);
}

void ChunkReader::rawPointsField(const char* name, std::size_t count) {
  const std::size_t at = beginField(name);
  requireRoom(count, 12, "points of a raw block");
  Array<Vec3> points(count);
  if (count > 0) file_.readRaw(points.data(), count * sizeof(Vec3));
  Json a;
  if (fullTree()) {
    a = Json::array();
    for (const Vec3& p : points) a.push_back(Json::array({floatJson(p.x), floatJson(p.y), floatJson(p.z)}));
  }
  addField(name, std::move(a), at, std::move(points));
}

void ChunkReader::rawU16Field(const char* name, std::size_t count) {
  const std::size_t at = beginField(name);
  requireRoom(count, 2, "16-bit values of a raw block");
  Array<std::uint16_t> v(count);
  if (count > 0) file_.readRaw(v.data(), count * sizeof(std::uint16_t));
  Json a;
  if (fullTree()) {
    a = Json::array();
    for (std::uint16_t i : v) a.push_back(i);
  }
  addField(name, std::move(a), at, std::move(v));
}

void ChunkReader::sequenceField(const char* name, BasicType element) {
  const std::size_t at = beginField(name);
  checkStart("a sequence");
  const std::int32_t n = file_.readSequenceCount();
  checkInside(at, "a sequence count");
  const auto count = static_cast<std::size_t>(n);
  requireRoom(count, minimumSize(element), "sequence elements");
  const bool json = fullTree() || element == BT_String || element == BT_Bool || element == BT_UChar;
  Array<std::int32_t> ints(element == BT_Int ? count : 0);
  Array<std::uint32_t> uints(element == BT_UInt ? count : 0);
  Array<float> floats(element == BT_Float ? count : 0);
  Json a = json ? Json::array() : Json();
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t v = file_.tell();
    checkStart(typeName(element));
    switch (element) {
      case BT_Bool: a.push_back(file_.readBool()); break;
      case BT_UChar: a.push_back(file_.readUChar()); break;
      case BT_Int: ints[i] = file_.readInt(); break;
      case BT_UInt: uints[i] = file_.readUInt(); break;
      case BT_Float: floats[i] = file_.readFloat(); break;
      case BT_String: a.push_back(file_.readString()); break;
      default: file_.fail(v, std::string("sequences of ") + typeName(element) + " are not decoded");
    }
    checkInside(v, typeName(element));
    if (json && element == BT_Int) a.push_back(ints[i]);
    if (json && element == BT_UInt) a.push_back(uints[i]);
    if (json && element == BT_Float) a.push_back(floatJson(floats[i]));
  }
  decltype(DecodedField::typed) typed;
  if (element == BT_Int) typed = std::move(ints);
  if (element == BT_UInt) typed = std::move(uints);
  if (element == BT_Float) typed = std::move(floats);
  addField(name, std::move(a), at, std::move(typed));
}

void ChunkReader::nestedChunk() {
  setReading("a nested chunk");
  checkStart("a nested chunk");
  DecodedChunk child = readChunk();
  DecodedChunk& c = *frames_.back().chunk;
  c.children.push_back(std::move(child));
  c.items.push_back(DecodedChunk::Item{true, c.children.size() - 1});
}

}  // namespace ztexport
