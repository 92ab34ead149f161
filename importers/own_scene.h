// What our own readers give: the import library's scene for the file, but
// with each mesh's triangle corners in one block, where the library makes an
// allocation per face (a million for a large grid). The library's
// destructors would free each face's corners; an OwnScene hands the blocks
// back itself.
#pragma once

#include <cstddef>
#include <memory>

struct aiMesh;
struct aiScene;

namespace hostimport {

struct OwnSceneDelete {
  void operator()(aiScene* scene) const noexcept;
};
using OwnScene = std::unique_ptr<aiScene, OwnSceneDelete>;

// Gives `mesh` `count` triangles whose corners lie in one block, and returns
// that block to be filled, three corners a face (null when `count` is 0).
unsigned* allocateTriangles(aiMesh& mesh, std::size_t count);

// Deletes a mesh whose triangles allocateTriangles made.
void deleteOwnMesh(aiMesh* mesh) noexcept;

}  // namespace hostimport
