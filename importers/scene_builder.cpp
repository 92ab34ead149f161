#include "importers/scene_builder.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "format/output_files.h"
#include "host/memory/memory_host.h"
#include "host/memory/rotation_math.h"

namespace hostimport {

void refuseDeepNesting(const std::string& model, int levels) {
  if (levels > hostmodel::kMaxNodeDepth)
    throw ImportError(model + ": the model's nodes nest deeper than " + std::to_string(hostmodel::kMaxNodeDepth) +
                      " levels");
}

using nlohmann::json;

static_assert(std::endian::native == std::endian::little, "buffer arrays are written as they lie in memory");

template <typename T>
json SceneBuilder::append(std::vector<T>&& values, std::size_t perElement) {
  const std::size_t count = values.size() / perElement;
  const std::size_t offset = scene_.buffer.append(std::move(values));
  return {{"buffer", scene_.bufferName}, {"byteOffset", offset}, {"count", count}};
}

json SceneBuilder::mesh(MeshArrays&& m) {
  json out = {{"vertices", append(std::move(m.vertices), 3)}, {"faces", append(std::move(m.faces), 3)}};
  if (!m.smoothingGroups.empty()) out["smoothingGroups"] = append(std::move(m.smoothingGroups), 1);
  if (!m.materialIds.empty()) out["materialIds"] = append(std::move(m.materialIds), 1);
  if (!m.textureVertices.empty() && !m.textureFaces.empty()) {
    out["textureVertices"] = append(std::move(m.textureVertices), 3);
    out["textureFaces"] = append(std::move(m.textureFaces), 3);
  }
  if (!m.vertexColors.empty() && m.colorFacesAreTextureFaces && out.contains("textureFaces")) {
    out["vertexColors"] = append(std::move(m.vertexColors), 3);
    out["colorFaces"] = out["textureFaces"];
  } else if (!m.vertexColors.empty() && !m.colorFaces.empty()) {
    out["vertexColors"] = append(std::move(m.vertexColors), 3);
    out["colorFaces"] = append(std::move(m.colorFaces), 3);
  }
  return out;
}

std::uint32_t Skin::bone(const std::string& id) {
  const auto [it, added] = boneIndex_.emplace(id, static_cast<std::uint32_t>(bones_.size()));
  if (added) bones_.push_back(id);
  return it->second;
}

void Skin::rigid(std::uint32_t bone) {
  records_.insert(records_.end(), {0u, bone});
  ++vertexCount_;
}

void Skin::blended(const std::vector<std::pair<std::uint32_t, float>>& links) {
  records_.push_back(static_cast<std::uint32_t>(links.size()));
  for (const auto& link : links) records_.push_back(link.first);
  for (const auto& link : links) records_.push_back(std::bit_cast<std::uint32_t>(link.second));
  ++vertexCount_;
}

json SceneBuilder::physique(Skin&& skin) {
  if (skin.vertexCount() == 0) return hostimport::physique();
  json p = {{"type", "physique"}};
  if (skinsInBuffer_ || skin.vertexCount() > kListedSkinVertices) {
    p["vertices"] = {{"bones", skin.bones()},
                     {"count", skin.vertexCount()},
                     {"records", append(skin.takeRecords(), 1)}};
    return json::array({p});
  }
  // The list form: a bone id per rigid vertex, bones and weights per blended one.
  json vertices = json::array();
  const std::vector<std::uint32_t>& words = skin.records();
  for (std::size_t at = 0; at < words.size();) {
    const std::uint32_t k = words[at++];
    if (k == 0) {
      vertices.push_back(skin.bones()[words[at++]]);
      continue;
    }
    json bones = json::array(), weights = json::array();
    for (std::uint32_t i = 0; i < k; ++i) {
      bones.push_back(skin.bones()[words[at + i]]);
      weights.push_back(std::bit_cast<float>(words[at + k + i]));
    }
    at += 2 * std::size_t{k};
    vertices.push_back({{"bones", bones}, {"weights", weights}});
  }
  p["vertices"] = std::move(vertices);
  return json::array({p});
}

json SceneBuilder::rigidPhysique(const std::string& nodeId, std::size_t vertexCount) {
  if (!skinsInBuffer_ && vertexCount <= kListedSkinVertices) {
    if (vertexCount == 0) return hostimport::physique();
    return json::array({{{"type", "physique"}, {"vertices", json::array_t(vertexCount, nodeId)}}});
  }
  Skin skin;
  const std::uint32_t self = skin.bone(nodeId);
  for (std::size_t i = 0; i < vertexCount; ++i) skin.rigid(self);
  return physique(std::move(skin));
}

std::string SceneBuilder::uniqueId(const std::string& name) {
  const std::string base = name.empty() ? std::string("Node") : name;
  std::string id = base;
  for (int n = 2; ids_.count(id); ++n) id = base + "#" + std::to_string(n);
  ids_.insert(id);
  return id;
}

ImportedScene SceneBuilder::finish(json document) {
  scene_.document = std::move(document);
  return std::move(scene_);
}

std::string utf8(const std::string& bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    std::size_t length = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    bool valid = length > 0 && i + length <= bytes.size();
    for (std::size_t k = 1; valid && k < length; ++k) valid = (static_cast<unsigned char>(bytes[i + k]) >> 6) == 2;
    if (valid && c != 0) {
      out.append(bytes, i, length);
      i += length;
    } else {
      if (c != 0) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
      }
      ++i;
    }
  }
  return out;
}

Decomposed decompose(const Matrix3& m) {
  Decomposed d;
  d.position = m.GetTrans();
  Point3 rows[3] = {m.GetRow(0), m.GetRow(1), m.GetRow(2)};
  float s[3];
  for (int i = 0; i < 3; ++i) s[i] = std::sqrt(DotProd(rows[i], rows[i]));
  if (DotProd(CrossProd(rows[0], rows[1]), rows[2]) < 0) s[0] = -s[0];
  Matrix3 r;
  for (int i = 0; i < 3; ++i) r.SetRow(i, s[i] != 0 ? rows[i] * (1.0f / s[i]) : Matrix3().GetRow(i));
  r.SetTrans({0, 0, 0});
  // Rows that are not quite orthogonal (shear, rounding) are squared up
  // before the quaternion is read, X kept, then Y, as they come.
  Point3 x = r.GetRow(0), y = r.GetRow(1);
  Point3 z = CrossProd(x, y);
  const float zl = std::sqrt(DotProd(z, z));
  if (zl > 1e-12f) {
    z = z * (1.0f / zl);
    y = CrossProd(z, x);
    r.SetRow(1, y);
    r.SetRow(2, z);
    d.rotation = hostmodel::quatFromMatrix(r);
  }
  d.scale = {s[0], s[1], s[2]};
  return d;
}

json point(const Point3& p) { return json::array({p.x, p.y, p.z}); }
json quat(const Quat& q) { return json::array({q.x, q.y, q.z, q.w}); }

json fixedTransform(const Matrix3& m) {
  json rows = json::array();
  for (int i = 0; i < 4; ++i) rows.push_back(point(m.GetRow(i)));
  return {{"matrix", rows}};
}

json physique() { return json::array({{{"type", "physique"}}}); }

namespace {

// Levels of nesting written indented, a space a level. Below them a value
// goes on one line: a chain of a thousand nodes would otherwise put its
// depth in spaces on each of its lines, and the file would grow with the
// square of it.
constexpr int kIndentedLevels = 48;

std::string compact(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

// As json::dump(1) writes, down to kIndentedLevels.
void writeIndented(const json& value, int level, std::string& out) {
  if (!value.is_structured() || value.empty() || level >= kIndentedLevels) {
    out += compact(value);
    return;
  }
  const bool object = value.is_object();
  out += object ? '{' : '[';
  for (auto it = value.begin(); it != value.end(); ++it) {
    out += it == value.begin() ? "\n" : ",\n";
    out.append(static_cast<std::size_t>(level) + 1, ' ');
    if (object) out += compact(it.key()) + ": ";
    writeIndented(*it, level + 1, out);
  }
  out += '\n';
  out.append(static_cast<std::size_t>(level), ' ');
  out += object ? '}' : ']';
}

}  // namespace

SceneText toText(ImportedScene&& scene, bool indented) {
  std::string text;
  if (indented) writeIndented(scene.document, 0, text);
  else text = compact(scene.document);
  return {std::move(text) + "\n", std::move(scene.buffer), std::move(scene.bufferName)};
}

namespace {

void writeSafely(const std::filesystem::path& path, const char* data, std::size_t size) {
  if (const Result<void> written = replaceFileContents(path.string(), {{data, size}}); !written)
    throw std::runtime_error(path.string() + ": cannot write the file: " + written.error().message);
}

}  // namespace

void writeSceneFiles(std::string_view text, std::span<const unsigned char> buffer, const std::string& bufferName,
                     const std::string& jsonPath) {
  const std::filesystem::path path(jsonPath);
  // The buffer first: a scene file is never left naming a buffer that is not there.
  writeSafely(path.parent_path() / bufferName, reinterpret_cast<const char*>(buffer.data()), buffer.size());
  writeSafely(path, text.data(), text.size());
}

}  // namespace hostimport
