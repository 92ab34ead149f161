// Our own reader of plain glTF 2.0 files: a .gltf document with its buffers
// in files beside it. The import library's reader copies every buffer into
// memory, then each array out of it, and allocates each triangle on its own;
// this one maps the buffers and copies each array once, and gives the scene
// the library would for the same file. What is exported does not depend on
// which of the two read it.
//
// It takes a tree of nodes (a matrix or a translation, rotation and scale
// each), meshes of triangles with float positions, normals, one set of
// texture coordinates and one of colours, indexed or not, and materials of
// colours alone (the metallic-roughness ones and the specular-glossiness
// extension). A file with anything else (textures and images, skins,
// animations, cameras, lights, morph targets, sparse or normalised
// accessors, other primitive modes, a second set of texture coordinates,
// buffers inside the document or a binary .glb, required extensions, a node
// that two parents name) is left to the library (docs/import.md).
#pragma once

#include <string>

#include "importers/own_scene.h"

namespace hostimport {

// The scene of the glTF file `path`, or null when the file is not one this
// reader takes, or cannot be read (the library then reads it and says why).
// A tree deeper than the scene loader takes is refused at once (ImportError).
OwnScene readPlainGltf(const std::string& path);

}  // namespace hostimport
