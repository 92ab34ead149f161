// Scene structure: what may stand at the top level and in which order, what
// each chunk nests, every known chunk in the version this tool reads; then
// the content checks of each chunk.
#include <map>
#include <string>

#include "format/chunk_kinds.h"
#include "dump/scene_checks.h"
#include "dump/validate.h"
#include "dump/validation_support.h"

namespace zt2dump {

namespace {

// Top-level order of a scene file: environment, materials, objects,
// animation. -1: not allowed at the top level.
int topLevelRank(std::uint32_t id) {
  switch (id) {
    case chunk_kind::kEnvironment.id: return 0;
    case chunk_kind::kMaterialList.id: return 1;
    case chunk_kind::kMesh.id:
    case chunk_kind::kCamera.id:
    case chunk_kind::kOmniLight.id:
    case chunk_kind::kDirectionalLight.id:
    case chunk_kind::kSpotLight.id:
    case chunk_kind::kHelper.id: return 2;
    case chunk_kind::kTransformAnimation.id:
    case chunk_kind::kOmniLightAnimation.id:
    case chunk_kind::kDirectionalLightAnimation.id:
    case chunk_kind::kSpotLightAnimation.id: return 3;
    default: return -1;
  }
}

bool isLightAnimation(std::uint32_t id) {
  return id == chunk_kind::kOmniLightAnimation.id || id == chunk_kind::kDirectionalLightAnimation.id ||
         id == chunk_kind::kSpotLightAnimation.id;
}

// The object chunk a light animation chunk's kind goes with; 0 for others.
std::uint32_t lightChunkOf(std::uint32_t animationId) {
  switch (animationId) {
    case chunk_kind::kOmniLightAnimation.id: return chunk_kind::kOmniLight.id;
    case chunk_kind::kDirectionalLightAnimation.id: return chunk_kind::kDirectionalLight.id;
    case chunk_kind::kSpotLightAnimation.id: return chunk_kind::kSpotLight.id;
    default: return 0;
  }
}

// The light object chunks of the file by node name; a name carried by more
// than one light is left out, since it cannot say which one is animated.
std::map<std::string, const DecodedChunk*> lightsByName(const DecodedFile& file) {
  std::map<std::string, const DecodedChunk*> lights;
  std::map<std::string, int> count;
  for (const DecodedChunk& c : file.chunks) {
    if (!c.decoded || (c.id != chunk_kind::kOmniLight.id && c.id != chunk_kind::kDirectionalLight.id &&
                       c.id != chunk_kind::kSpotLight.id))
      continue;
    const DecodedChunk* object = childWithId(c, chunk_kind::kObject.id);
    if (object == nullptr || !object->decoded) continue;
    const std::string name = object->at("name").get<std::string>();
    if (++count[name] == 1) lights[name] = &c;
    else lights.erase(name);
  }
  return lights;
}

// Sub-chunk order inside a mesh; 0 for ids that do not belong there.
int meshRank(std::uint32_t id) {
  switch (id) {
    case chunk_kind::kMeshVertex.id: return 1;
    case chunk_kind::kMeshFace.id: return 2;
    case chunk_kind::kMeshReserved.id: return 3;
    case chunk_kind::kMeshMaterialNames.id: return 4;
    case chunk_kind::kMeshMapChannel.id: return 5;
    case chunk_kind::kMeshReference.id: return 6;
    default: return 0;
  }
}

class StructureCheck {
 public:
  explicit StructureCheck(const DecodedFile& file) : file_(file) {}

  void chunk(const DecodedChunk& c) {
    if (!c.known()) return;  // skippable by design
    if (!c.decoded) fault(file_, where(c) + ": " + c.note);
    switch (c.id) {
      case chunk_kind::kCamera.id:
      case chunk_kind::kOmniLight.id:
      case chunk_kind::kDirectionalLight.id:
      case chunk_kind::kSpotLight.id:
      case chunk_kind::kHelper.id: firstChild(c, chunk_kind::kObject.id, "ObjectChunk"); break;
      case chunk_kind::kMesh.id: mesh(c); break;
      case chunk_kind::kTransformAnimation.id:
      case chunk_kind::kOmniLightAnimation.id:
      case chunk_kind::kDirectionalLightAnimation.id:
      case chunk_kind::kSpotLightAnimation.id: firstChild(c, chunk_kind::kAnimationHeader.id, "AnimationHeaderChunk"); break;
      case chunk_kind::kMaterialList.id:
        if (intOf(c.at("materialCount")) < 0) fault(file_, where(c) + ": negative materialCount");
        allChildren(c, chunk_kind::kMaterial.id, "MaterialChunk");
        break;
      case chunk_kind::kMaterial.id: allChildren(c, chunk_kind::kTexture.id, "TextureChunk"); break;
      case chunk_kind::kTexture.id:
        if (intOf(c.at("fileNameCount")) < 0) fault(file_, where(c) + ": negative fileNameCount");
        break;
      default: break;
    }
    for (const DecodedChunk& child : c.children) chunk(child);
  }

 private:
  void firstChild(const DecodedChunk& c, std::uint32_t id, const char* name) {
    if (c.children.empty() || c.children.front().id != id)
      fault(file_, where(c) + ": does not begin with its " + name);
  }

  void allChildren(const DecodedChunk& c, std::uint32_t id, const char* name) {
    for (const DecodedChunk& child : c.children)
      if (child.id != id)
        fault(file_, where(c) + ": holds chunk " + hexId(child.id) + " at offset " + std::to_string(child.offset) +
                         " where only " + name + "s belong");
  }

  void mesh(const DecodedChunk& c) {
    firstChild(c, chunk_kind::kObject.id, "ObjectChunk");
    int previous = 0;
    int mapChannels = 0;
    for (std::size_t i = 1; i < c.children.size(); ++i) {
      const DecodedChunk& sub = c.children[i];
      if (!sub.known()) continue;
      const int rank = meshRank(sub.id);
      const std::string place = where(c) + " (mesh \"" + objectName(c) + "\"): " + where(sub);
      if (rank == 0) fault(file_, place + " does not belong in a mesh");
      if (rank < previous || (rank == previous && rank != 5))
        fault(file_, place + " is out of order (vertices, faces, material names, mapping channels, reference)");
      if (rank == 5 && ++mapChannels > 2) fault(file_, place + " is a third mapping channel");
      previous = rank;
    }
  }

  const DecodedFile& file_;
};

void checkTopLevel(const DecodedFile& file) {
  int previousRank = -1;
  const DecodedChunk* previous = nullptr;
  std::map<std::uint32_t, int> seen;
  const std::map<std::string, const DecodedChunk*> lights = lightsByName(file);
  for (const DecodedChunk& c : file.chunks) {
    if (!c.known()) continue;
    const int rank = topLevelRank(c.id);
    if (rank < 0) fault(file, where(c) + " cannot stand at the top level of a scene file");
    if (rank < previousRank)
      fault(file, where(c) + " comes after " + where(*previous) +
                      "; the file order is environment, materials, objects, animation");
    if ((c.id == chunk_kind::kEnvironment.id || c.id == chunk_kind::kMaterialList.id) && ++seen[c.id] > 1)
      fault(file, where(c) + " is the second of its kind");
    if (isLightAnimation(c.id) && c.decoded) {
      // A light's parameter chunk follows its own transform chunk.
      const DecodedChunk* header = childWithId(c, chunk_kind::kAnimationHeader.id);
      const DecodedChunk* previousHeader =
          previous != nullptr && previous->id == chunk_kind::kTransformAnimation.id && previous->decoded
              ? childWithId(*previous, chunk_kind::kAnimationHeader.id)
              : nullptr;
      if (header == nullptr || previousHeader == nullptr || header->at("name") != previousHeader->at("name"))
        fault(file, where(c) + " does not follow the TransformAnimationChunk of the same node");
      // Its kind is the kind of the node's light chunk (an ambient light is a spot in both).
      if (header != nullptr && header->decoded) {
        const auto light = lights.find(header->at("name").get<std::string>());
        if (light != lights.end() && light->second->id != lightChunkOf(c.id))
          fault(file, where(c) + " animates " + where(*light->second) + ", a light of another kind");
      }
    }
    previousRank = rank;
    previous = &c;
  }
}

void checkContent(const DecodedFile& file, const DecodedChunk& c) {
  if (!c.decoded) return;
  switch (c.id) {
    case chunk_kind::kMesh.id: checkMesh(file, c); break;
    case chunk_kind::kMaterialList.id:
      for (const DecodedChunk& m : c.children)
        if (m.decoded && m.id == chunk_kind::kMaterial.id) checkMaterial(file, m);
      break;
    case chunk_kind::kTransformAnimation.id: checkTransformAnimation(file, c); break;
    case chunk_kind::kOmniLightAnimation.id:
    case chunk_kind::kDirectionalLightAnimation.id:
    case chunk_kind::kSpotLightAnimation.id: checkLightAnimation(file, c); break;
    default: break;
  }
}

}  // namespace

void validateScene(const DecodedFile& file) {
  StructureCheck structure(file);
  for (const DecodedChunk& c : file.chunks) structure.chunk(c);
  checkTopLevel(file);
  for (const DecodedChunk& c : file.chunks) checkContent(file, c);
  checkMeshMaterialsListed(file);
}

}  // namespace zt2dump
