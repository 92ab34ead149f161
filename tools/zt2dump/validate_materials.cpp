// Materials across the file: every material a mesh names is defined by the
// material list. Meshes refer to materials by name only, so a name missing
// from the list leaves a reader with faces it cannot shade. A file without a
// list (a part of a scene, cut out for a tool) is not checked by name.
#include <set>

#include "chunk_schema.h"
#include "scene_checks.h"
#include "validation_support.h"

namespace zt2dump {

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
