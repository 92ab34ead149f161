// OBJ text: our own reader either leaves a file to the import library or
// gives a scene whose every index lies inside its arrays, the front end's
// assumptions; it never crashes, hangs or reads past the file.
#include <assimp/scene.h>

#include <cstdint>
#include <cstdlib>

#include "fuzz_support.h"
#include "importers/obj_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = ztx_fuzz::writeScratch("fuzz.obj", data, size);
  const hostimport::OwnScene scene = hostimport::readPlainObj(path);
  if (!scene) return 0;
  const aiNode& root = *scene->mRootNode;
  for (unsigned c = 0; c < root.mNumChildren; ++c)
    for (unsigned k = 0; k < root.mChildren[c]->mNumMeshes; ++k)
      if (root.mChildren[c]->mMeshes[k] >= scene->mNumMeshes) std::abort();
  for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
    const aiMesh& mesh = *scene->mMeshes[m];
    if (mesh.mMaterialIndex >= scene->mNumMaterials || mesh.mNumFaces == 0) std::abort();
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
      if (mesh.mFaces[f].mNumIndices != 3) std::abort();
      for (unsigned i = 0; i < 3; ++i)
        if (mesh.mFaces[f].mIndices[i] >= mesh.mNumVertices) std::abort();
    }
  }
  return 0;
}
