// The body decoders, one per chunk kind, grouped by subsystem in
// object_chunks.cpp, mesh_chunks.cpp, material_chunks.cpp,
// animation_chunks.cpp and vertex_data_chunk.cpp.
#pragma once

namespace ztexport {

class ChunkReader;
struct DecodedChunk;

void decodeObject(ChunkReader& r, DecodedChunk& c);
void decodeCamera(ChunkReader& r, DecodedChunk& c);
void decodeOmniLight(ChunkReader& r, DecodedChunk& c);
void decodeDirectionalLight(ChunkReader& r, DecodedChunk& c);
void decodeSpotLight(ChunkReader& r, DecodedChunk& c);
void decodeHelper(ChunkReader& r, DecodedChunk& c);
void decodeEnvironment(ChunkReader& r, DecodedChunk& c);

void decodeMesh(ChunkReader& r, DecodedChunk& c);
void decodeMeshVertex(ChunkReader& r, DecodedChunk& c);
void decodeMeshFace(ChunkReader& r, DecodedChunk& c);
void decodeMeshReserved(ChunkReader& r, DecodedChunk& c);
void decodeMeshMaterialNames(ChunkReader& r, DecodedChunk& c);
void decodeMeshMapChannel(ChunkReader& r, DecodedChunk& c);
void decodeMeshReference(ChunkReader& r, DecodedChunk& c);

void decodeMaterialList(ChunkReader& r, DecodedChunk& c);
void decodeMaterial(ChunkReader& r, DecodedChunk& c);
void decodeTexture(ChunkReader& r, DecodedChunk& c);

void decodeTransformAnimation(ChunkReader& r, DecodedChunk& c);
void decodeAnimationHeader(ChunkReader& r, DecodedChunk& c);
void decodeOmniLightAnimation(ChunkReader& r, DecodedChunk& c);
void decodeDirectionalLightAnimation(ChunkReader& r, DecodedChunk& c);
void decodeSpotLightAnimation(ChunkReader& r, DecodedChunk& c);

void decodeVertexData(ChunkReader& r, DecodedChunk& c);

}  // namespace ztexport
