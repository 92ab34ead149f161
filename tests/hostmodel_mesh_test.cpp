// Meshes of the host model: binary arrays, and the host's mesh clean-up
// keeping per-face and per-vertex channels in step.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/mesh.h"
#include "support/test_support.h"

namespace {

Mesh& meshOf(hostmodel::MemoryHost& host, const std::string& objectId) {
  Object* obj = host.findObject(objectId);
  EXPECT_NE(obj, nullptr);
  return static_cast<TriObject*>(obj->ConvertToType(0, TRIOBJ_CLASS_ID).get())->GetMesh();
}

// Appends values as little-endian bytes, the layout of buffer files.
template <typename T>
std::size_t put(std::vector<unsigned char>& bytes, std::initializer_list<T> values) {
  const std::size_t offset = bytes.size();
  for (T v : values) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &v, sizeof(T));
    bytes.insert(bytes.end(), raw, raw + sizeof(T));
  }
  return offset;
}

TEST(HostModelMesh, BinaryBuffersAreReadAtUnalignedOffsets) {
  ztx_test::TempDir dir;
  std::vector<unsigned char> b;
  put<std::uint8_t>(b, {0xEE, 0xEE, 0xEE});  // no offset below is a multiple of 4
  const std::size_t verts = put<float>(b, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0.5f});
  const std::size_t faces = put<std::uint32_t>(b, {0, 1, 2, 2, 1, 3});
  const std::size_t groups = put<std::uint32_t>(b, {1, 0x80000000u});
  const std::size_t matIds = put<std::uint16_t>(b, {3, 7});
  const std::size_t uvs = put<float>(b, {0.25f, 0.75f, 0});
  const std::size_t uvFaces = put<std::uint32_t>(b, {0, 0, 0, 0, 0, 0});
  ztx_test::writeBytes(dir.file("mesh.bin"), b);
  auto ref = [](std::size_t offset, int count) {
    return R"({"buffer": "mesh.bin", "byteOffset": )" + std::to_string(offset) + R"(, "count": )" +
           std::to_string(count) + "}";
  };
  ztx_test::writeText(dir.file("scene.json"),
                      R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": )" + ref(verts, 4) +
                          R"(, "faces": )" + ref(faces, 2) + R"(, "smoothingGroups": )" + ref(groups, 2) +
                          R"(, "materialIds": )" + ref(matIds, 2) + R"(, "textureVertices": )" + ref(uvs, 1) +
                          R"(, "textureFaces": )" + ref(uvFaces, 2) + "}}]}");
  auto host = hostmodel::loadScene(dir.file("scene.json"));
  const Mesh& mesh = meshOf(*host, "m");
  ASSERT_EQ(mesh.getNumVerts(), 4);
  EXPECT_EQ(mesh.verts[3], Point3(1, 1, 0.5f));
  ASSERT_EQ(mesh.getNumFaces(), 2);
  EXPECT_EQ(mesh.faces[1].v[2], 3u);
  EXPECT_EQ(mesh.faces[1].smGroup, 0x80000000u);
  EXPECT_EQ(mesh.faces[0].getMatID(), 3);
  EXPECT_EQ(mesh.faces[1].getMatID(), 7);
  ASSERT_EQ(mesh.getNumTVerts(), 1);
  EXPECT_EQ(mesh.tVerts[0], Point3(0.25f, 0.75f, 0));
  EXPECT_EQ(mesh.tvFace.size(), 2u);
}

TEST(HostModelMesh, CleanUpKeepsFaceAndVertexChannelsInStep) {
  // Vertices 0..5; face 1 is degenerate, face 2 names vertex 9 of 6, vertex 4 is used by no
  // face. Texture and colour faces carry the face's number, so a moved face shows which it was.
  auto host = hostmodel::loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0, 5, 0, 0],
      "faces": [0, 1, 2, 1, 1, 3, 2, 3, 9, 3, 5, 2],
      "materialIds": [0, 1, 2, 3],
      "textureVertices": [0, 0, 0],
      "textureFaces": [0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3],
      "vertexColors": [0, 0, 0],
      "colorFaces": [10, 10, 10, 11, 11, 11, 12, 12, 12, 13, 13, 13]}},
      {"id": "plain", "type": "mesh", "mesh": {"vertices": [0, 0, 0, 1, 0, 0, 2, 0, 0], "faces": [0, 0, 1, 2, 1, 0, 0, 1, 7]}}]})",
                                             "", "scene.json");
  Mesh mesh = meshOf(*host, "m");  // a working copy, as the exporter takes one
  mesh.setVDataSupport(10);
  for (int i = 0; i < mesh.getNumVerts(); ++i) mesh.vData[10].data[i] = i;
  mesh.RemoveDegenerateFaces();
  ASSERT_EQ(mesh.getNumFaces(), 3);
  EXPECT_EQ(mesh.faces[1].getMatID(), 2);
  EXPECT_EQ(mesh.tvFace[1].t[0], 2u);
  EXPECT_EQ(mesh.vcFace[1].t[0], 12u);
  mesh.RemoveIllegalFaces();
  ASSERT_EQ(mesh.getNumFaces(), 2);
  ASSERT_EQ(mesh.tvFace.size(), 2u);
  ASSERT_EQ(mesh.vcFace.size(), 2u);
  EXPECT_EQ(mesh.faces[1].getMatID(), 3);
  EXPECT_EQ(mesh.tvFace[1].t[1], 3u);
  EXPECT_EQ(mesh.vcFace[1].t[2], 13u);
  mesh.DeleteIsoVerts();
  ASSERT_EQ(mesh.getNumVerts(), 5);
  EXPECT_EQ(mesh.verts[4], Point3(5, 0, 0));
  ASSERT_TRUE(mesh.vDataSupport(10));
  EXPECT_EQ(mesh.vData[10].data, (std::vector<std::int32_t>{0, 1, 2, 3, 5}));
  // Face (3, 5, 2) follows vertex 5 to its new place 4; channels stay with their faces.
  EXPECT_EQ(mesh.faces[1].v[1], 4u);
  EXPECT_EQ(mesh.faces[1].v[2], 2u);
  EXPECT_EQ(mesh.vcFace[1].t[0], 13u);
  EXPECT_EQ(meshOf(*host, "m").getNumFaces(), 4);  // the loaded mesh itself is untouched

  // Without map channels the clean-up leaves them empty.
  Mesh plain = meshOf(*host, "plain");
  plain.RemoveDegenerateFaces();
  plain.RemoveIllegalFaces();
  plain.DeleteIsoVerts();
  EXPECT_EQ(plain.getNumFaces(), 1);
  EXPECT_EQ(plain.faces[0].v[0], 2u);
  EXPECT_TRUE(plain.tvFace.empty());
  EXPECT_TRUE(plain.vcFace.empty());
}

}  // namespace
