// Models the import library reads only in part: a skeleton with its clip and
// no mesh, keys past the end of their clip, and the words a user reads when a
// model cannot be used at all. The files are written here, by hand.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "support/b3d_writing.h"
#include "support/scene_export.h"

using ztx_test::runExport;
using ztx_test::TempDir;

namespace {

using ztx_test::append;
using ztx_test::b3dChunk;
using ztx_test::b3dNode;
using ztx_test::Bytes;
using ztx_test::put;

// A DirectX skeleton: Root with Bone below it, Bone moving up over 20 ticks.
const char* kSkeletonX = R"(xof 0303txt 0032
Frame Root {
 FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
 Frame Bone {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,1.0,0.0,1.0;; }
 }
}
AnimationSet Walk {
 Animation {
  { Bone }
  AnimationKey { 2; 3; 0;3;0.0,1.0,0.0;;, 10;3;0.0,2.0,0.0;;, 20;3;0.0,3.0,0.0;;; }
 }
}
)";

// Position keys at frames 1, 5 and `last`, on a clip of 10 frames.
Bytes b3d(int last) {
  auto keys = [](std::vector<std::pair<int, float>> list) {
    Bytes b;
    put(b, std::int32_t{1});
    for (const auto& [frame, y] : list) put(b, std::int32_t{frame}), put(b, 0.0f), put(b, y), put(b, 0.0f);
    return b3dChunk("KEYS", b);
  };
  Bytes vertices, triangles, anim, version;
  for (std::int32_t v : {0, 0, 0}) put(vertices, v);
  for (float v : {0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f}) put(vertices, v);
  for (std::int32_t v : {-1, 0, 1, 2}) put(triangles, v);
  Bytes mesh;
  put(mesh, std::int32_t{-1});
  append(mesh, b3dChunk("VRTS", vertices));
  append(mesh, b3dChunk("TRIS", triangles));
  put(anim, std::int32_t{0}), put(anim, std::int32_t{10}), put(anim, 30.0f);
  Bytes root = b3dChunk("MESH", mesh);
  for (const Bytes& part : {keys({{1, 0.0f}, {last, 1.0f}}), b3dChunk("ANIM", anim),
                            b3dNode("Bone", {0, 1, 0}, keys({{1, 1.0f}, {5, 2.0f}, {last, 3.0f}}))})
    append(root, part);
  put(version, std::int32_t{1});
  append(version, b3dNode("Root", {0, 0, 0}, root));
  return b3dChunk("BB3D", version);
}

// The note on a material of a B3D mesh without a brush.
const std::string kNoColourNote =
    ": material \"Material\" gives no diffuse colour; the import library's default, white, is taken\n";

std::vector<std::string> exportArgs(const TempDir& dir, const std::string& model, const std::string& out) {
  return {dir.file(model), "-o", dir.file(out), "--config-dir", dir.file("config")};
}

}  // namespace

// A skeleton and its clip without a mesh, which the library's validation
// refuses ("aiScene::mNumMeshes is 0"), exports its nodes and keys.
TEST(ImportPartial, SkeletonWithoutMeshExportsItsKeys) {
  TempDir dir;
  ztx_test::writeText(dir.file("walk.x"), kSkeletonX);
  const auto r = runExport(exportArgs(dir, "walk.x", "walk.zt2"));
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(r.err, "");
  const auto file = ztx_test::dumpJson(dir.file("walk.zt2"));
  int animated = 0;
  for (const auto& c : ztx_test::topChunks(file)) {
    if (c["name"] != "TransformAnimationChunk") continue;
    ++animated;
    EXPECT_EQ(c["children"][0]["fields"]["name"], "Bone");
    // Below Root, in the source's own frame: from 1 up towards 3 (the last
    // sample falls just before the clip's last key).
    const auto& keys = c["fields"]["keys"];
    ASSERT_EQ(keys.size(), 2u) << c.dump();
    EXPECT_NEAR(keys[0]["transform"][3][1].get<double>(), 1.0, 1e-5);
    EXPECT_NEAR(keys[1]["transform"][3][1].get<double>(), 1.0 + 2.0 * 23 / 24, 1e-4);
  }
  EXPECT_EQ(animated, 1);
}

// Keys one frame past their clip's end are moved onto it with a warning: the
// file exports the same bytes as one whose keys end on the clip's last frame.
TEST(ImportPartial, KeysPastTheClipAreClampedWithAWarning) {
  TempDir dir;
  ztx_test::writeBytes(dir.file("fits.b3d"), b3d(10));
  ztx_test::writeBytes(dir.file("over.b3d"), b3d(11));
  const auto fits = runExport(exportArgs(dir, "fits.b3d", "fits.zt2"));
  ASSERT_EQ(fits.exitCode, 0) << fits.out << fits.err;
  // Its mesh names no material: the library's own, without a colour, is white.
  EXPECT_EQ(fits.err, "NOTE: " + dir.file("fits.b3d") + kNoColourNote);
  const auto over = runExport(exportArgs(dir, "over.b3d", "over.zt2"));
  ASSERT_EQ(over.exitCode, 0) << over.out << over.err;
  EXPECT_EQ(over.err, "WARNING: " + dir.file("over.b3d") +
                          ": 2 keys of the animation lie past its end (up to tick 11 of a clip 10 ticks long); moved "
                          "onto its end\nNOTE: " + dir.file("over.b3d") + kNoColourNote);
  EXPECT_EQ(ztx_test::readBytes(dir.file("over.zt2")), ztx_test::readBytes(dir.file("fits.zt2")));
}

// A light that no node carries (the library's validation refuses the file
// for it) is left out with a warning; the mesh beside it exports.
TEST(ImportPartial, LightWithoutNodeIsLeftOut) {
  TempDir dir;
  ztx_test::writeText(dir.file("lone.ogex"), R"(GeometryNode $node1 {
  Name {string {"Box"}}
  ObjectRef {ref {$geometry1}}
}
LightObject $light1 (type = "point") { Color (attrib = "light") {float[3] {{1, 1, 1}}} }
GeometryObject $geometry1 {
  Mesh (primitive = "triangles") {
    VertexArray (attrib = "position") {float[3] {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}}
    IndexArray {unsigned_int32[3] {{0, 1, 2}}}
  }
}
)");
  const auto r = runExport(exportArgs(dir, "lone.ogex", "lone.zt2"));
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(r.err, "WARNING: " + dir.file("lone.ogex") + ": light \"light1\" is attached to no node; it is left out\n");
  EXPECT_EQ(ztx_test::objectNames(ztx_test::dumpJson(dir.file("lone.zt2"))), std::vector<std::string>{"Box"});
}

// Models that cannot be used: the message names the model, says what is
// wrong in plain words, and gives the library's own text in brackets.
TEST(ImportPartial, RefusedModelsAreExplainedInPlainWords) {
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"points.obj", "v 0 0 0\nv 1 0 0\np 1\np 2\n",
       ": the model holds only points or lines, which have no surface to export (import library: No meshes remaining)"},
      {"empty.x", "xof 0303txt 0032\nFrame Root {\n FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,"
                  "1.0,0.0,0.0,0.0,0.0,1.0;; }\n}\n",
       ": the model holds no mesh, animation, camera or light: nothing to export\n"},
      {"bad.dae", "<?xml version=\"1.0\"?>\n<COLLADA><asset>",
       ": the file's XML is malformed (import library: "},
      {"cut.x", "xof 0303txt 0032\nFrame {", ": the file ends before its data does (it may be cut short) "
                                            "(import library: Line 1: Unexpected end of file"},
  };
  for (const auto& [name, text, message] : cases) {
    SCOPED_TRACE(name);
    TempDir dir;
    ztx_test::writeText(dir.file(name), text);
    const auto r = runExport(exportArgs(dir, name, "out.zt2"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("zt2export: " + dir.file(name) + message), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
  }
}

// What the library reads of a file only in part is said, and what it leaves
// undefined takes its own default: an OBJ whose material library is missing,
// an SMD whose material has no colour (white, with a note), an OBJ library of
// two materials of which one is used (only that one is written), and an IQM
// file of joints and a clip only, which the library cannot read at all.
TEST(ImportPartial, WhatTheLibraryLeavesOutIsSaid) {
  std::string iqm = std::string("INTERQUAKEMODEL") + '\0';
  const std::uint32_t header[27] = {2, 124, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1, 0, 10};
  iqm.append(reinterpret_cast<const char*>(header), sizeof header);
  const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl Red\nf 1 2 3\n";
  struct Case {
    const char* file;
    std::string text;
    const char* besideName;  // a second file beside the model, if any
    const char* beside;
    int exitCode;
    std::string said;
    std::vector<std::string> materials;  // as written, with the first one's diffuse colour
    std::vector<double> diffuse;
  };
  const Case cases[] = {
      {"gone.obj", "mtllib gone.mtl\n" + triangle, nullptr, nullptr, 0,
       ": material library \"gone.mtl\" not found; its materials are left out and the meshes take the default material\n",
       {"Red"}, {0.6, 0.6, 0.6}},
      {"two.obj", "mtllib two.mtl\n" + triangle, "two.mtl", "newmtl Red\nKd 1 0 0\nnewmtl Blue\nKd 0 0 1\n", 0, "",
       {"Red"}, {1, 0, 0}},
      {"plain.smd",
       "version 1\nnodes\n0 \"root\" -1\nend\nskeleton\ntime 0\n0 0 0 0 0 0 0\nend\ntriangles\nplain\n"
       "0 0 0 0 0 0 1 0 0\n0 1 0 0 0 0 1 1 0\n0 0 1 0 0 0 1 0 1\nend\n",
       nullptr, nullptr, 0,
       ": material \"Texture_0\" gives no diffuse colour; the import library's default, white, is taken\n",
       {"Texture_0"}, {1, 1, 1}},
      {"anim.iqm", iqm, nullptr, nullptr, 2,
       ": the import library reads the meshes of an IQM file only, and this one holds none: its 2 joints and 1 anim "
       "(10 frames) cannot be read\n",
       {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    TempDir dir;
    ztx_test::writeText(dir.file(c.file), c.text);
    if (c.besideName) ztx_test::writeText(dir.file(c.besideName), c.beside);
    auto args = exportArgs(dir, c.file, "out.zt2");
    args.insert(args.end(), {"--missing-textures", "drop", "--write-scene", dir.file("out.scene.json")});
    const auto r = runExport(args);
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    if (c.said.empty()) EXPECT_EQ(r.err, "");
    else EXPECT_NE(r.err.find(dir.file(c.file) + c.said), std::string::npos) << r.err;
    if (c.exitCode != 0) {
      EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
      continue;
    }
    const auto scene = nlohmann::json::parse(ztx_test::readText(dir.file("out.scene.json")));
    std::vector<std::string> names;
    for (const auto& m : scene.at("materials")) names.push_back(m.at("name"));
    EXPECT_EQ(names, c.materials);
    ASSERT_FALSE(names.empty());
    const auto diffuse = scene.at("materials")[0].at("diffuse").get<std::vector<double>>();
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(diffuse.at(i), c.diffuse[i], 1e-6);
  }
}
