#include "chunk_schema.h"

#include <array>
#include <cstdio>

#include "chunk_layouts.h"

namespace zt2dump {

namespace {

constexpr std::array kKinds = {
    ChunkKind{chunk_id::kObject, "ObjectChunk", 1, decodeObject},
    ChunkKind{chunk_id::kCamera, "CameraChunk", 0, decodeCamera},
    ChunkKind{chunk_id::kOmniLight, "OmniLightChunk", 0, decodeOmniLight},
    ChunkKind{chunk_id::kDirectionalLight, "DirectionalLightChunk", 0, decodeDirectionalLight},
    ChunkKind{chunk_id::kSpotLight, "SpotLightChunk", 0, decodeSpotLight},
    ChunkKind{chunk_id::kMesh, "MeshChunk", 2, decodeMesh},
    ChunkKind{chunk_id::kMeshVertex, "MeshVertexChunk", 1, decodeMeshVertex},
    ChunkKind{chunk_id::kMeshFace, "MeshFaceChunk", 1, decodeMeshFace},
    // Has its place in a mesh but no writer produces it; known so that a
    // file holding one still dumps in full.
    ChunkKind{chunk_id::kMeshReserved, "MeshReservedChunk", 0, decodeMeshReserved},
    ChunkKind{chunk_id::kMeshMaterialNames, "MeshMaterialNamesChunk", 1, decodeMeshMaterialNames},
    ChunkKind{chunk_id::kMeshMapChannel, "MeshMapChannelChunk", 1, decodeMeshMapChannel},
    ChunkKind{chunk_id::kMaterialList, "MaterialListChunk", 0, decodeMaterialList},
    ChunkKind{chunk_id::kMaterial, "MaterialChunk", 2, decodeMaterial},
    ChunkKind{chunk_id::kTexture, "TextureChunk", 1, decodeTexture},
    ChunkKind{chunk_id::kTransformAnimation, "TransformAnimationChunk", 5, decodeTransformAnimation},
    ChunkKind{chunk_id::kAnimationHeader, "AnimationHeaderChunk", 0, decodeAnimationHeader},
    ChunkKind{chunk_id::kVertexData, "VertexDataChunk", 1, decodeVertexData},
    ChunkKind{chunk_id::kEnvironment, "EnvironmentChunk", 0, decodeEnvironment},
    ChunkKind{chunk_id::kHelper, "HelperChunk", 0, decodeHelper},
    ChunkKind{chunk_id::kOmniLightAnimation, "OmniLightAnimationChunk", 2, decodeOmniLightAnimation},
    ChunkKind{chunk_id::kDirectionalLightAnimation, "DirectionalLightAnimationChunk", 2,
              decodeDirectionalLightAnimation},
    ChunkKind{chunk_id::kSpotLightAnimation, "SpotLightAnimationChunk", 2, decodeSpotLightAnimation},
    ChunkKind{chunk_id::kMeshReference, "MeshReferenceChunk", 0, decodeMeshReference},
};

}  // namespace

const ChunkKind* findChunkKind(std::uint32_t id) {
  for (const ChunkKind& k : kKinds)
    if (k.id == id) return &k;
  return nullptr;
}

std::string hexId(std::uint32_t id) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%x", id);
  return buf;
}

}  // namespace zt2dump
