// What the front end assumes of a scene our own readers give: every mesh a
// node names exists, every mesh has triangles, a material that exists and
// corners that name its vertices. A harness aborts where one does not hold.
#pragma once

#include <assimp/scene.h>

#include <cstdlib>
#include <vector>

namespace ztx_fuzz {

inline void checkOwnScene(const aiScene& scene) {
  if (scene.mNumMeshes == 0 || scene.mRootNode == nullptr) std::abort();
  std::vector<const aiNode*> stack{scene.mRootNode};
  while (!stack.empty()) {
    const aiNode* node = stack.back();
    stack.pop_back();
    for (unsigned k = 0; k < node->mNumMeshes; ++k)
      if (node->mMeshes[k] >= scene.mNumMeshes) std::abort();
    for (unsigned c = 0; c < node->mNumChildren; ++c) stack.push_back(node->mChildren[c]);
  }
  for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
    const aiMesh& mesh = *scene.mMeshes[m];
    if (mesh.mMaterialIndex >= scene.mNumMaterials || mesh.mNumFaces == 0) std::abort();
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
      if (mesh.mFaces[f].mNumIndices != 3) std::abort();
      for (unsigned i = 0; i < 3; ++i)
        if (mesh.mFaces[f].mIndices[i] >= mesh.mNumVertices) std::abort();
    }
  }
}

}  // namespace ztx_fuzz
