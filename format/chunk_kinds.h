// Every chunk kind of the files we write, and the version history of
// ZTExport.cfg: the one place their ids, versions and names are known. The
// writers open their chunks through these entries and zt2dump names what it
// reads by them, so a new version cannot reach one side only.
#pragma once

#include <array>
#include <cstdint>
#include <string>

struct ChunkKindInfo {
  std::uint32_t id;
  std::uint32_t version;  // the version our writers produce and zt2dump decodes
  const char* name;
};

namespace chunk_kind {
inline constexpr ChunkKindInfo kObject{0x10000, 1, "ObjectChunk"};
inline constexpr ChunkKindInfo kCamera{0x10001, 0, "CameraChunk"};
inline constexpr ChunkKindInfo kOmniLight{0x10002, 0, "OmniLightChunk"};
inline constexpr ChunkKindInfo kDirectionalLight{0x10003, 0, "DirectionalLightChunk"};
inline constexpr ChunkKindInfo kSpotLight{0x10004, 0, "SpotLightChunk"};
inline constexpr ChunkKindInfo kMesh{0x10005, 2, "MeshChunk"};
inline constexpr ChunkKindInfo kMeshVertex{0x10006, 1, "MeshVertexChunk"};
inline constexpr ChunkKindInfo kMeshFace{0x10007, 1, "MeshFaceChunk"};
// Has its place in a mesh but no writer produces it; known so that a file
// holding one still dumps in full.
inline constexpr ChunkKindInfo kMeshReserved{0x1000b, 0, "MeshReservedChunk"};
inline constexpr ChunkKindInfo kMeshMaterialNames{0x1000c, 1, "MeshMaterialNamesChunk"};
inline constexpr ChunkKindInfo kMeshMapChannel{0x1000e, 1, "MeshMapChannelChunk"};
inline constexpr ChunkKindInfo kMaterialList{0x1000f, 0, "MaterialListChunk"};
inline constexpr ChunkKindInfo kMaterial{0x10010, 2, "MaterialChunk"};
inline constexpr ChunkKindInfo kTexture{0x10011, 1, "TextureChunk"};
inline constexpr ChunkKindInfo kTransformAnimation{0x10012, 5, "TransformAnimationChunk"};
inline constexpr ChunkKindInfo kAnimationHeader{0x10013, 0, "AnimationHeaderChunk"};
inline constexpr ChunkKindInfo kVertexData{0x10014, 1, "VertexDataChunk"};
inline constexpr ChunkKindInfo kEnvironment{0x10015, 0, "EnvironmentChunk"};
inline constexpr ChunkKindInfo kHelper{0x10016, 0, "HelperChunk"};
inline constexpr ChunkKindInfo kOmniLightAnimation{0x10017, 2, "OmniLightAnimationChunk"};
inline constexpr ChunkKindInfo kDirectionalLightAnimation{0x10018, 2, "DirectionalLightAnimationChunk"};
inline constexpr ChunkKindInfo kSpotLightAnimation{0x10019, 2, "SpotLightAnimationChunk"};
inline constexpr ChunkKindInfo kMeshReference{0x1001a, 0, "MeshReferenceChunk"};
}  // namespace chunk_kind

inline constexpr std::array kChunkKinds = {
    chunk_kind::kObject,           chunk_kind::kCamera,
    chunk_kind::kOmniLight,        chunk_kind::kDirectionalLight,
    chunk_kind::kSpotLight,        chunk_kind::kMesh,
    chunk_kind::kMeshVertex,       chunk_kind::kMeshFace,
    chunk_kind::kMeshReserved,     chunk_kind::kMeshMaterialNames,
    chunk_kind::kMeshMapChannel,   chunk_kind::kMaterialList,
    chunk_kind::kMaterial,         chunk_kind::kTexture,
    chunk_kind::kTransformAnimation, chunk_kind::kAnimationHeader,
    chunk_kind::kVertexData,       chunk_kind::kEnvironment,
    chunk_kind::kHelper,           chunk_kind::kOmniLightAnimation,
    chunk_kind::kDirectionalLightAnimation, chunk_kind::kSpotLightAnimation,
    chunk_kind::kMeshReference,
};

// The kind with this id, or nullptr for an id no writer of ours knows.
constexpr const ChunkKindInfo* findChunkKindInfo(std::uint32_t id) {
  for (const ChunkKindInfo& k : kChunkKinds)
    if (k.id == id) return &k;
  return nullptr;
}

// "0x10005": how every message and dump names a chunk id.
std::string hexId(std::uint32_t id);

// ZTExport.cfg: the version written today, and the first version that holds
// each value appended after the texture path history. Earlier files leave
// those values at their defaults.
inline constexpr int kOptionsFileVersion = 10;

namespace options_since {
inline constexpr int kRetainHierarchies = 2;
inline constexpr int kPositionDelta = 3;
inline constexpr int kFrameToFrameInterpolation = 4;
inline constexpr int kPivotAsMeshCenter = 5;
inline constexpr int kMaintainMatrixScaling = 6;
inline constexpr int kSaveReferencesOnce = 7;
inline constexpr int kDecreaseEndFrameByOne = 8;
inline constexpr int kUseGlobalAnimationRange = 9;
inline constexpr int kExportSkinning = 10;
}  // namespace options_since
