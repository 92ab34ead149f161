// Meshes of the host model: inline and binary arrays, and the host's mesh
// clean-up keeping per-face and per-vertex channels in step.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/mesh.h"
#include "support/test_support.h"

namespace {

using hostmodel::loadSceneFromString;
using hostmodel::SceneLoadError;

Mesh& meshOf(hostmodel::MemoryHost& host, const std::string& objectId) {
  Object* obj = host.findObject(objectId);
  EXPECT_NE(obj, nullptr);
  return static_cast<TriObject*>(obj->ConvertToType(0, TRIOBJ_CLASS_ID))->GetMesh();
}

// Appends values as little-endian bytes, the layout of buffer files.
class BufferWriter {
 public:
  template <typename T>
  std::size_t put(std::initializer_list<T> values) {
    const std::size_t offset = bytes_.size();
    for (T v : values) {
      unsigned char raw[sizeof(T)];
      std::memcpy(raw, &v, sizeof(T));
      bytes_.insert(bytes_.end(), raw, raw + sizeof(T));
    }
    return offset;
  }
  const std::vector<unsigned char>& bytes() const { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;
};

TEST(HostModelMesh, InlineArraysFillTheMesh) {
  auto host = loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0],
      "faces": [0, 1, 2, 2, 1, 3],
      "smoothingGroups": [1, 6],
      "materialIds": [0, 65535],
      "textureVertices": [0, 0, 0, 1, 1, 0],
      "textureFaces": [0, 1, 0, 0, 1, 1],
      "vertexColors": [1, 0, 0],
      "colorFaces": [0, 0, 0, 0, 0, 0]}}]})",
                                  "", "scene.json");
  const Mesh& mesh = meshOf(*host, "m");
  ASSERT_EQ(mesh.getNumVerts(), 4);
  EXPECT_EQ(mesh.verts[3], Point3(1, 1, 0));
  ASSERT_EQ(mesh.getNumFaces(), 2);
  EXPECT_EQ(mesh.faces[1].v[0], 2u);
  EXPECT_EQ(mesh.faces[1].v[2], 3u);
  EXPECT_EQ(mesh.faces[1].smGroup, 6u);
  EXPECT_EQ(mesh.faces[1].getMatID(), 65535);
  ASSERT_EQ(mesh.getNumTVerts(), 2);
  ASSERT_EQ(mesh.tvFace.size(), 2u);
  EXPECT_EQ(mesh.tvFace[1].t[2], 1u);
  ASSERT_EQ(mesh.getNumVertCol(), 1);
  EXPECT_EQ(mesh.vertCol[0], Point3(1, 0, 0));
  EXPECT_EQ(mesh.vcFace.size(), 2u);
}

TEST(HostModelMesh, MeshObjectsAreTriangleMeshesThatConvertToThemselves) {
  auto host = loadSceneFromString(R"({"objects": [
      {"id": "tri", "type": "mesh", "mesh": {"vertices": [], "faces": []}},
      {"id": "box", "type": "geometry", "className": "Box", "classId": [16, 0],
       "mesh": {"vertices": [0, 0, 0], "faces": []}},
      {"id": "nurbs", "type": "geometry", "className": "NURBS Surface"}]})",
                                  "", "scene.json");
  Object* tri = host->findObject("tri");
  EXPECT_EQ(tri->ClassID(), TRIOBJ_CLASS_ID);
  EXPECT_TRUE(tri->CanConvertToType(TRIOBJ_CLASS_ID));
  EXPECT_EQ(tri->ConvertToType(0, TRIOBJ_CLASS_ID), tri);

  Object* box = host->findObject("box");
  EXPECT_EQ(box->SuperClassID(), GEOMOBJECT_CLASS_ID);
  EXPECT_EQ(box->ClassID(), Class_ID(16, 0));
  ASSERT_TRUE(box->CanConvertToType(TRIOBJ_CLASS_ID));
  Object* converted = box->ConvertToType(0, TRIOBJ_CLASS_ID);
  ASSERT_NE(converted, nullptr);
  EXPECT_NE(converted, box);
  // The host keeps the conversion: asking twice gives the same object.
  EXPECT_EQ(box->ConvertToType(0, TRIOBJ_CLASS_ID), converted);
  EXPECT_EQ(static_cast<TriObject*>(converted)->GetMesh().getNumVerts(), 1);

  Object* nurbs = host->findObject("nurbs");
  EXPECT_EQ(nurbs->SuperClassID(), GEOMOBJECT_CLASS_ID);
  EXPECT_FALSE(nurbs->CanConvertToType(TRIOBJ_CLASS_ID));
  EXPECT_EQ(nurbs->ConvertToType(0, TRIOBJ_CLASS_ID), nullptr);
}

TEST(HostModelMesh, BinaryBuffersAreReadAtTheirOffsets) {
  ztx_test::TempDir dir;
  BufferWriter w;
  w.put<std::uint8_t>({0xEE, 0xEE, 0xEE});  // an offset that is not a multiple of 4 must work too
  const std::size_t verts = w.put<float>({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0.5f});
  const std::size_t faces = w.put<std::uint32_t>({0, 1, 2, 2, 1, 3});
  const std::size_t groups = w.put<std::uint32_t>({1, 0x80000000u});
  const std::size_t matIds = w.put<std::uint16_t>({3, 7});
  const std::size_t uvs = w.put<float>({0.25f, 0.75f, 0});
  const std::size_t uvFaces = w.put<std::uint32_t>({0, 0, 0, 0, 0, 0});
  ztx_test::writeBytes(dir.file("mesh.bin"), w.bytes());
  auto ref = [](std::size_t offset, int count) {
    return R"({"buffer": "mesh.bin", "byteOffset": )" + std::to_string(offset) + R"(, "count": )" +
           std::to_string(count) + "}";
  };
  const std::string json = R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": )" + ref(verts, 4) +
                           R"(, "faces": )" + ref(faces, 2) + R"(, "smoothingGroups": )" + ref(groups, 2) +
                           R"(, "materialIds": )" + ref(matIds, 2) + R"(, "textureVertices": )" + ref(uvs, 1) +
                           R"(, "textureFaces": )" + ref(uvFaces, 2) + "}}]}";
  ztx_test::writeText(dir.file("scene.json"), json);
  auto host = hostmodel::loadScene(dir.file("scene.json"));
  const Mesh& mesh = meshOf(*host, "m");
  ASSERT_EQ(mesh.getNumVerts(), 4);
  EXPECT_EQ(mesh.verts[3], Point3(1, 1, 0.5f));
  ASSERT_EQ(mesh.getNumFaces(), 2);
  EXPECT_EQ(mesh.faces[1].v[0], 2u);
  EXPECT_EQ(mesh.faces[1].v[2], 3u);
  EXPECT_EQ(mesh.faces[1].smGroup, 0x80000000u);
  EXPECT_EQ(mesh.faces[0].getMatID(), 3);
  EXPECT_EQ(mesh.faces[1].getMatID(), 7);
  EXPECT_EQ(mesh.tVerts[0], Point3(0.25f, 0.75f, 0));
  EXPECT_EQ(mesh.tvFace.size(), 2u);
}

TEST(HostModelMesh, ABigBinaryMeshLoads) {
  // A million triangles; no timing, but a slow per-element path would show here.
  ztx_test::TempDir dir;
  const std::uint32_t faceCount = 1000000, vertCount = faceCount + 2;
  std::vector<unsigned char> bytes(std::size_t(vertCount) * 12 + std::size_t(faceCount) * 12);
  auto* points = reinterpret_cast<float*>(bytes.data());
  for (std::uint32_t i = 0; i < vertCount; ++i) {
    points[3 * i] = float(i);
    points[3 * i + 1] = float(i % 2);
    points[3 * i + 2] = 0;
  }
  auto* indices = reinterpret_cast<std::uint32_t*>(bytes.data() + std::size_t(vertCount) * 12);
  for (std::uint32_t f = 0; f < faceCount; ++f) {
    indices[3 * f] = f;
    indices[3 * f + 1] = f + 1;
    indices[3 * f + 2] = f + 2;
  }
  ztx_test::writeBytes(dir.file("strip.bin"), bytes);
  const std::string json = R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": {"buffer": "strip.bin", "count": )" + std::to_string(vertCount) + R"(},
      "faces": {"buffer": "strip.bin", "byteOffset": )" + std::to_string(std::size_t(vertCount) * 12) +
                           R"(, "count": )" + std::to_string(faceCount) + "}}}]}";
  auto host = loadSceneFromString(json, dir.path().string(), "strip.json");
  const Mesh& mesh = meshOf(*host, "m");
  ASSERT_EQ(mesh.getNumFaces(), int(faceCount));
  EXPECT_EQ(mesh.faces.back().v[2], vertCount - 1);
  EXPECT_EQ(mesh.verts.back(), Point3(float(vertCount - 1), float((vertCount - 1) % 2), 0));
}

TEST(HostModelMesh, BufferOutOfRangeNamesFileAndPlace) {
  ztx_test::TempDir dir;
  ztx_test::writeBytes(dir.file("mesh.bin"), std::vector<unsigned char>(40));
  try {
    loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
        "vertices": {"buffer": "mesh.bin", "byteOffset": 8, "count": 3}, "faces": []}}]})",
                        dir.path().string(), "scene.json");
    FAIL() << "no error";
  } catch (const SceneLoadError& e) {
    EXPECT_STREQ(e.what(),
                 "scene.json: objects[0].mesh.vertices: buffer \"mesh.bin\" holds 40 bytes, too few for 3 elements "
                 "of 12 bytes from byteOffset 8");
  }
}

TEST(HostModelMesh, MissingBufferFileIsReported) {
  ztx_test::TempDir dir;
  try {
    loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
        "vertices": [], "faces": {"buffer": "gone.bin", "count": 0}}}]})",
                        dir.path().string(), "scene.json");
    FAIL() << "no error";
  } catch (const SceneLoadError& e) {
    EXPECT_STREQ(e.what(), "scene.json: objects[0].mesh.faces.buffer: cannot open buffer file \"gone.bin\"");
  }
}

TEST(HostModelMesh, PerFaceCountsMustMatchTheFaces) {
  auto expectError = [](const std::string& mesh, const std::string& expected) {
    try {
      loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": )" + mesh + "}]}", "", "scene.json");
      ADD_FAILURE() << "no error for " << mesh;
    } catch (const SceneLoadError& e) {
      EXPECT_EQ(std::string(e.what()), expected);
    }
  };
  expectError(R"({"vertices": [0, 0], "faces": []})",
              "scene.json: objects[0].mesh.vertices: expected a flat array of point coordinates, a multiple of 3 "
              "numbers; found 2");
  expectError(R"({"vertices": [], "faces": [0, 1, 2], "smoothingGroups": [1, 2]})",
              "scene.json: objects[0].mesh.smoothingGroups: expected 1 entries, one per face; found 2");
  expectError(R"({"vertices": [], "faces": [0, 1, 2], "materialIds": [70000]})",
              "scene.json: objects[0].mesh.materialIds[0]: expected an integer from 0 to 65535");
  expectError(R"({"vertices": [], "faces": [0, 1, -2]})",
              "scene.json: objects[0].mesh.faces[2]: expected an integer from 0 to 4294967295");
  expectError(R"({"vertices": [], "faces": [0, 1, 2], "textureVertices": [0, 0, 0]})",
              "scene.json: objects[0].mesh: \"textureVertices\" need \"textureFaces\", one per face");
  expectError(R"({"vertices": [], "faces": [0, 1, 2], "colorFaces": [0, 0, 0]})",
              "scene.json: objects[0].mesh.colorFaces: given without \"vertexColors\"");
  expectError(R"({"vertices": [], "faces": [0, 1, 2], "vertexColors": [1, 1, 1], "colorFaces": []})",
              "scene.json: objects[0].mesh.colorFaces: expected 1 entries, one per face; found 0");
}

// Vertices 0..5; face 1 is degenerate, face 2 names vertex 9 of 6, vertex 4
// is used by no face. Texture and colour faces carry the face's number so
// that a face that moved shows which one it was.
std::unique_ptr<hostmodel::MemoryHost> meshToClean() {
  return loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0, 5, 0, 0],
      "faces": [0, 1, 2, 1, 1, 3, 2, 3, 9, 3, 5, 2],
      "materialIds": [0, 1, 2, 3],
      "textureVertices": [0, 0, 0],
      "textureFaces": [0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3],
      "vertexColors": [0, 0, 0],
      "colorFaces": [10, 10, 10, 11, 11, 11, 12, 12, 12, 13, 13, 13]}}]})",
                             "", "scene.json");
}

TEST(HostModelMesh, CleanUpKeepsFaceChannelsInStep) {
  auto host = meshToClean();
  Mesh mesh = meshOf(*host, "m");  // a working copy, as the exporter takes one
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
  // The loaded mesh itself is untouched.
  EXPECT_EQ(meshOf(*host, "m").getNumFaces(), 4);
}

TEST(HostModelMesh, DeleteIsoVertsRenumbersFacesAndVertexData) {
  auto host = meshToClean();
  Mesh mesh = meshOf(*host, "m");
  mesh.setVDataSupport(10);
  for (int i = 0; i < mesh.getNumVerts(); ++i) mesh.vData[10].data[i] = i;
  mesh.RemoveDegenerateFaces();
  mesh.RemoveIllegalFaces();
  mesh.DeleteIsoVerts();
  ASSERT_EQ(mesh.getNumVerts(), 5);
  EXPECT_EQ(mesh.verts[4], Point3(5, 0, 0));
  ASSERT_TRUE(mesh.vDataSupport(10));
  EXPECT_EQ(mesh.vData[10].data, (std::vector<std::int32_t>{0, 1, 2, 3, 5}));
  ASSERT_EQ(mesh.getNumFaces(), 2);
  // Face (3, 5, 2) follows vertex 5 to its new place 4.
  EXPECT_EQ(mesh.faces[1].v[0], 3u);
  EXPECT_EQ(mesh.faces[1].v[1], 4u);
  EXPECT_EQ(mesh.faces[1].v[2], 2u);
  // Every face still names a vertex that holds its original index in channel 10.
  for (const Face& f : mesh.faces)
    for (unsigned int v : f.v) EXPECT_EQ(mesh.verts[v].x, float(mesh.vData[10].data[v]));
}

TEST(HostModelMesh, DeleteIsoVertsWithoutIsolatedVerticesChangesNothing) {
  auto host = loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 1, 0, 0, 2, 0, 0], "faces": [2, 1, 0]}}]})",
                                  "", "scene.json");
  Mesh mesh = meshOf(*host, "m");
  mesh.setVDataSupport(10);
  mesh.DeleteIsoVerts();
  EXPECT_EQ(mesh.getNumVerts(), 3);
  EXPECT_EQ(mesh.vData[10].data.size(), 3u);
  EXPECT_EQ(mesh.faces[0].v[0], 2u);
}

TEST(HostModelMesh, CleanUpWithoutMapChannelsLeavesThemEmpty) {
  auto host = loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 1, 0, 0, 2, 0, 0], "faces": [0, 0, 1, 0, 1, 2, 0, 1, 7]}}]})",
                                  "", "scene.json");
  Mesh mesh = meshOf(*host, "m");
  mesh.RemoveDegenerateFaces();
  mesh.RemoveIllegalFaces();
  mesh.DeleteIsoVerts();
  EXPECT_EQ(mesh.getNumFaces(), 1);
  EXPECT_TRUE(mesh.tvFace.empty());
  EXPECT_TRUE(mesh.vcFace.empty());
}

}  // namespace
