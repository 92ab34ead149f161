// --validate: checks what a reader of our files relies on. Each check throws
// a DumpError naming the first fault with its place (chunk, group, index);
// on success the result is a one-line summary.
#pragma once

#include <string>

#include "dump/reader_tree.h"

namespace zt2dump {

std::string validateFile(const DecodedFile& file);

// Parts of validateFile, one per kind of file.
void validateScene(const DecodedFile& file);
void validateVertexData(const DecodedFile& file);
void validateOptions(const DecodedFile& file);
// A per-vertex file against the mesh it names in a scene file beside it.
void validateSkinAgainstScene(const DecodedFile& scene, const DecodedFile& skin);

}  // namespace zt2dump
