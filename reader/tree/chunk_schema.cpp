#include "chunk_schema.h"

#include <array>

#include "chunk_layouts.h"

namespace ztexport {

namespace {

constexpr std::array kKinds = {
    ChunkKind{&chunk_kind::kObject, decodeObject},
    ChunkKind{&chunk_kind::kCamera, decodeCamera},
    ChunkKind{&chunk_kind::kOmniLight, decodeOmniLight},
    ChunkKind{&chunk_kind::kDirectionalLight, decodeDirectionalLight},
    ChunkKind{&chunk_kind::kSpotLight, decodeSpotLight},
    ChunkKind{&chunk_kind::kMesh, decodeMesh},
    ChunkKind{&chunk_kind::kMeshVertex, decodeMeshVertex},
    ChunkKind{&chunk_kind::kMeshFace, decodeMeshFace},
    ChunkKind{&chunk_kind::kMeshReserved, decodeMeshReserved},
    ChunkKind{&chunk_kind::kMeshMaterialNames, decodeMeshMaterialNames},
    ChunkKind{&chunk_kind::kMeshMapChannel, decodeMeshMapChannel},
    ChunkKind{&chunk_kind::kMaterialList, decodeMaterialList},
    ChunkKind{&chunk_kind::kMaterial, decodeMaterial},
    ChunkKind{&chunk_kind::kTexture, decodeTexture},
    ChunkKind{&chunk_kind::kTransformAnimation, decodeTransformAnimation},
    ChunkKind{&chunk_kind::kAnimationHeader, decodeAnimationHeader},
    ChunkKind{&chunk_kind::kVertexData, decodeVertexData},
    ChunkKind{&chunk_kind::kEnvironment, decodeEnvironment},
    ChunkKind{&chunk_kind::kHelper, decodeHelper},
    ChunkKind{&chunk_kind::kOmniLightAnimation, decodeOmniLightAnimation},
    ChunkKind{&chunk_kind::kDirectionalLightAnimation, decodeDirectionalLightAnimation},
    ChunkKind{&chunk_kind::kSpotLightAnimation, decodeSpotLightAnimation},
    ChunkKind{&chunk_kind::kMeshReference, decodeMeshReference},
};

static_assert(kKinds.size() == kChunkKinds.size(), "every chunk kind of the shared table needs a decoder");

}  // namespace

const ChunkKind* findChunkKind(std::uint32_t id) {
  for (const ChunkKind& k : kKinds)
    if (k.info->id == id) return &k;
  return nullptr;
}

}  // namespace ztexport
