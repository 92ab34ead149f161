// The one-block triangles of our own readers (own_scene.h).
#include "importers/own_scene.h"

#include <assimp/mesh.h>
#include <assimp/scene.h>

namespace hostimport {
namespace {

// The first face holds the block: its destructor frees it, the others free nothing.
void unshareFaces(aiMesh& mesh) noexcept {
  if (mesh.mFaces == nullptr) return;
  for (unsigned f = 1; f < mesh.mNumFaces; ++f) mesh.mFaces[f].mIndices = nullptr;
}

}  // namespace

unsigned* allocateTriangles(aiMesh& mesh, std::size_t count) {
  if (count == 0) return nullptr;
  auto* faces = new aiFace[count];
  unsigned* block;
  try {
    block = new unsigned[3 * count];
  } catch (...) {
    delete[] faces;
    throw;
  }
  for (std::size_t f = 0; f < count; ++f) {
    faces[f].mNumIndices = 3;
    faces[f].mIndices = block + 3 * f;
  }
  mesh.mFaces = faces;
  mesh.mNumFaces = static_cast<unsigned>(count);
  return block;
}

void deleteOwnMesh(aiMesh* mesh) noexcept {
  if (mesh == nullptr) return;
  unshareFaces(*mesh);
  delete mesh;
}

void OwnSceneDelete::operator()(aiScene* scene) const noexcept {
  if (scene == nullptr) return;
  for (unsigned m = 0; m < scene->mNumMeshes; ++m)
    if (scene->mMeshes != nullptr && scene->mMeshes[m] != nullptr) unshareFaces(*scene->mMeshes[m]);
  delete scene;
}

}  // namespace hostimport
