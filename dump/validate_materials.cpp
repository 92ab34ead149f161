// Materials across the file: every material a mesh names is defined by the
// material list. Meshes refer to materials by name only, so a name missing
// from the list leaves a reader with faces it cannot shade. A file without a
// list (a part of a scene, cut out for a tool) is not checked by name.
#include <cmath>
#include <limits>
#include <set>

#include "materials/material_records.h"

#include "format/chunk_kinds.h"
#include "dump/scene_checks.h"
#include "dump/validation_support.h"

namespace zt2dump {

namespace {

float floatOf(const Json& v) {
  return v.is_number() ? v.get<float>() : std::numeric_limits<float>::quiet_NaN();
}

MaterialColor colorOf(const Json& v) {
  return {floatOf(v.at(0)), floatOf(v.at(1)), floatOf(v.at(2)), floatOf(v.at(3))};
}

// The decoded chunk back as the record our writer takes, so that the rules a
// record must keep are stated once, in MaterialRecord::validate().
MaterialRecord recordOf(const DecodedChunk& m) {
  MaterialRecord r;
  r.name = m.at("name").get<std::string>();
  r.plainLayerMode = static_cast<int>(intOf(m.at("plainLayerMode")));
  r.option1 = static_cast<int>(intOf(m.at("option1")));
  r.layer2Mode = static_cast<int>(intOf(m.at("layer2Mode")));
  r.ambient = colorOf(m.at("ambient"));
  r.diffuse = colorOf(m.at("diffuse"));
  r.specular = colorOf(m.at("specular"));
  r.value1 = floatOf(m.at("value1"));
  r.value2 = floatOf(m.at("value2"));
  r.diffuseMode = static_cast<int>(intOf(m.at("diffuseMode")));
  r.mode2 = static_cast<int>(intOf(m.at("mode2")));
  r.maskMode = static_cast<int>(intOf(m.at("maskMode")));
  std::size_t child = 0;
  for (int i = 0; i < MaterialRecord::kLayerCount; ++i) {
    if (!m.at("layer" + std::to_string(i + 1) + "Present").get<bool>() || child >= m.children.size()) continue;
    const DecodedChunk& t = m.children[child++];
    if (!t.decoded) continue;
    TextureRecord& texture = r.layer(i);
    texture.name = t.at("name").get<std::string>();
    texture.textureMode = static_cast<int>(intOf(t.at("textureMode")));
    for (const Json& f : t.at("fileNames")) texture.fileNames.push_back(f.get<std::string>());
    if (t.find("sequenceMode") != nullptr) texture.sequenceMode = static_cast<int>(intOf(t.at("sequenceMode")));
  }
  return r;
}

}  // namespace

void checkMaterial(const DecodedFile& file, const DecodedChunk& material) {
  const std::string fault = recordOf(material).validate();
  if (!fault.empty())
    zt2dump::fault(file, where(material) + " (material \"" + material.at("name").get<std::string>() + "\"): " + fault);
}

void checkMeshMaterialsListed(const DecodedFile& file) {
  std::set<std::string> listed;
  const DecodedChunk* list = nullptr;
  for (const DecodedChunk& c : file.chunks)
    if (c.id == chunk_kind::kMaterialList.id && c.decoded) list = &c;
  if (list == nullptr) return;
  for (const DecodedChunk& m : list->children)
    if (m.id == chunk_kind::kMaterial.id && m.decoded) listed.insert(m.at("name").get<std::string>());

  for (const DecodedChunk& mesh : file.chunks) {
    if (mesh.id != chunk_kind::kMesh.id || !mesh.decoded) continue;
    const DecodedChunk* names = childWithId(mesh, chunk_kind::kMeshMaterialNames.id);
    if (names == nullptr) continue;
    for (const Json& name : names->at("names")) {
      const std::string n = name.get<std::string>();
      if (listed.count(n) == 0)
        fault(file, where(*names) + " (mesh \"" + objectName(mesh) + "\"): material \"" + n +
                        "\" is not in the material list");
    }
  }
}

}  // namespace zt2dump
