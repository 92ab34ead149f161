// Every chunk kind the exporter writes: id, name, the one version whose
// layout this tool knows, and the function that decodes its body.
#pragma once

#include <cstdint>
#include <string>

namespace zt2dump {

class ChunkReader;
struct DecodedChunk;

namespace chunk_id {
inline constexpr std::uint32_t kObject = 0x10000;
inline constexpr std::uint32_t kCamera = 0x10001;
inline constexpr std::uint32_t kOmniLight = 0x10002;
inline constexpr std::uint32_t kDirectionalLight = 0x10003;
inline constexpr std::uint32_t kSpotLight = 0x10004;
inline constexpr std::uint32_t kMesh = 0x10005;
inline constexpr std::uint32_t kMeshVertex = 0x10006;
inline constexpr std::uint32_t kMeshFace = 0x10007;
inline constexpr std::uint32_t kMeshReserved = 0x1000b;
inline constexpr std::uint32_t kMeshMaterialNames = 0x1000c;
inline constexpr std::uint32_t kMeshMapChannel = 0x1000e;
inline constexpr std::uint32_t kMaterialList = 0x1000f;
inline constexpr std::uint32_t kMaterial = 0x10010;
inline constexpr std::uint32_t kTexture = 0x10011;
inline constexpr std::uint32_t kTransformAnimation = 0x10012;
inline constexpr std::uint32_t kAnimationHeader = 0x10013;
inline constexpr std::uint32_t kVertexData = 0x10014;
inline constexpr std::uint32_t kEnvironment = 0x10015;
inline constexpr std::uint32_t kHelper = 0x10016;
inline constexpr std::uint32_t kOmniLightAnimation = 0x10017;
inline constexpr std::uint32_t kDirectionalLightAnimation = 0x10018;
inline constexpr std::uint32_t kSpotLightAnimation = 0x10019;
inline constexpr std::uint32_t kMeshReference = 0x1001a;
}  // namespace chunk_id

using DecodeBody = void (*)(ChunkReader& reader, DecodedChunk& chunk);

struct ChunkKind {
  std::uint32_t id;
  const char* name;
  std::uint32_t version;
  DecodeBody decode;
};

// The kind with this id, or nullptr for an id the tool does not know.
const ChunkKind* findChunkKind(std::uint32_t id);

// "0x10005".
std::string hexId(std::uint32_t id);

}  // namespace zt2dump
