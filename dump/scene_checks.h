// Content checks of single scene chunks, called by validateScene once the
// chunk tree's structure is known to be sound.
#pragma once

#include "dump/reader_tree.h"

namespace zt2dump {

void checkMesh(const DecodedFile& file, const DecodedChunk& mesh);
void checkTransformAnimation(const DecodedFile& file, const DecodedChunk& animation);
void checkLightAnimation(const DecodedFile& file, const DecodedChunk& animation);
// Modes in their ranges, finite colours and values, file names without directory.
void checkMaterial(const DecodedFile& file, const DecodedChunk& material);
// Every material name of every mesh is in the file's material list.
void checkMeshMaterialsListed(const DecodedFile& file);

// The name in a mesh's or object chunk's ObjectChunk, for messages.
std::string objectName(const DecodedChunk& objectCarrier);

}  // namespace zt2dump
