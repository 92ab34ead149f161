// Skinned, animated models turned into glTF twice: through zt2export and
// zt2dump --gltf, and by the import library's own exporter (`assimp export`)
// straight from the model, or, where it cannot write one, its scene of the
// model. Both are posed at five times and at every frame of the source (a
// small glTF skinning evaluator), at the sample rate zt2export names when it
// samples past some, and the skinned vertex positions compared: every vertex
// of either within 1% of the model's size of a vertex of the other; every
// listed model must be compared, none refused. The import turns the model's
// Y-up frame onto the host's Z-up one and the glTF conversion turns it back,
// so both stand in the model's own frame and are compared as they are,
// without any fitting (docs/gltf.md, the skinning comparison).
//
// The models are the skinned, animated ones of the corpus
// (tests/data/skinned-animated.txt), one test per directory; a flag made
// here, a cloth hung from chains of bones under a pole, waving; bones
// without objects worked out by hand; and small models written here, within
// 0.1%.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>

#include <tiny_gltf.h>

#include "host/inhouse/sanitized.h"
#include "support/b3d_writing.h"
#include "support/flag_model.h"
#include "support/posing/posing.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using ztx_test::GltfPose;
using ztx_test::ScenePose;
using ztx_test::Vec3;
using ztx_test::diagonal;
using ztx_test::distance;
using ztx_test::farthestFromNearest;

// How one model fared.
struct Outcome {
  enum Kind { Compared, RefusedByExport, NotReadByAssimp } kind = Compared;
  bool againstScene = false;  // the library could not write glTF: compared with its scene
  double deviation = 0;       // the largest, as a fraction of the model's size
  double motion = 0;         // how far the import library's vertices move over the span, as a fraction
  std::string detail;
  std::string messages;  // what zt2export said on its standard error
  int samples = 0;       // how many times were compared
};

// How a model is compared.
struct Comparison {
  std::string reference;             // what the import library converts; the model itself when empty
  std::vector<std::string> options;  // more arguments of zt2export
  bool sourceFrames = false;         // at every frame of the source as well as at five times
  // With the library's scene as it reads it, posed here: its glTF exporter
  // joins vertices that only the skin tells apart.
  bool againstScene = false;
  // At most this many frames of the source, evenly spread (0: all): a BVH
  // take of thousands of frames would otherwise cost minutes.
  std::size_t mostFrames = 0;
};

// The two conversions of `model`, compared at five times over the shorter
// of the two animations (the export's range ends a frame early) and, when
// asked, at every frame of the source (the times of its first clip's keys).
Outcome compareModel(const std::string& model, const Comparison& how = {}) {
  ztx_test::TempDir dir;
  Outcome o;
  const std::string reference = how.reference.empty() ? model : how.reference;
  // The skin is what is compared: a map whose image the corpus lacks is left out.
  std::vector<std::string> args = {"60", ZTX_ZT2EXPORT, "--missing-textures", "drop"};
  for (const std::string& a : ztx_test::exportArgs(dir, model, dir.file("ours.zt2"), how.options)) args.push_back(a);
  const auto e = ztx_test::run(ZTX_TIMEOUT, args);
  o.messages = e.err;
  if (e.exitCode != 0 || !fs::exists(dir.file("ours.zt2"))) {
    o.kind = Outcome::RefusedByExport;
    o.detail = "zt2export ended with " + std::to_string(e.exitCode) + ": " + e.out + e.err;
    std::replace(o.detail.begin(), o.detail.end(), '\n', ' ');
    return o;
  }
  const auto d = ztx_test::runDump({dir.file("ours.zt2"), "--gltf", dir.file("ours.glb")});
  EXPECT_EQ(d.exitCode, 0) << model << ": " << d.err;
  // -lbw: the import library keeps each vertex's four strongest bones, as
  // glTF and we do; by itself it keeps four others of a vertex of more.
  const auto a = how.againstScene
                     ? ztx_test::RunResult{}
                     : ztx_test::run(ZTX_TIMEOUT, {"60", "assimp", "export", reference, dir.file("theirs.glb"), "-lbw"});
  const tinygltf::Model ours = ztx_test::readGlb(dir.file("ours.glb"));
  const GltfPose oursPose(ours);
  std::optional<tinygltf::Model> theirsGltf;
  std::optional<GltfPose> theirsGltfPose;
  std::optional<ScenePose> theirsScene;
  if (a.exitCode == 0 && fs::exists(dir.file("theirs.glb"))) {
    theirsGltf = ztx_test::readGlb(dir.file("theirs.glb"));
    theirsGltfPose.emplace(*theirsGltf);
  } else {
    theirsScene.emplace(reference);
    if (!theirsScene->read()) {
      o.kind = Outcome::NotReadByAssimp;
      o.detail = "assimp export ended with " + std::to_string(a.exitCode) + " and the library reads no scene";
      return o;
    }
    o.againstScene = true;
  }
  auto theirsVertices = [&](double t, const std::string& only) {
    return theirsScene ? theirsScene->vertices(t, only) : theirsGltfPose->vertices(t, only);
  };
  const double a0 = oursPose.duration(), a1 = theirsScene ? theirsScene->duration() : theirsGltfPose->duration();
  const double span = a0 > 0 && a1 > 0 ? std::min(a0, a1) : std::max(a0, a1);
  // The .skd holds one mesh (the one exported last): when the model has
  // several skinned meshes, that one is compared, with the import library's
  // mesh of the same node.
  std::string only;
  const auto skinned = [](const tinygltf::Model& m) {
    std::vector<std::string> names;
    for (const auto& n : m.nodes)
      if (n.mesh >= 0 && n.skin >= 0 && std::find(names.begin(), names.end(), n.name) == names.end()) names.push_back(n.name);
    return names;
  };
  const auto theirsSkinned = theirsScene ? theirsScene->skinnedNodes() : skinned(*theirsGltf);
  const auto oursSkinned = skinned(ours);
  if (theirsSkinned.size() > 1 && oursSkinned.size() == 1) {
    only = oursSkinned[0];
    o.detail = "mesh \"" + only + "\" of " + std::to_string(theirsSkinned.size()) + " skinned ones: ";
  }
  const auto start = theirsVertices(0, only);
  const double size = diagonal(start);
  std::vector<double> times;
  for (int k = 0; k <= 4; ++k) times.push_back(span * k / 4);
  if (how.sourceFrames) {
    const ScenePose source(reference);
    std::vector<double> frames;
    if (source.read())
      for (double t : source.keyTimes())
        if (t >= 0 && t <= span + 1e-9) frames.push_back(std::min(t, span));
    const std::size_t stride =
        how.mostFrames > 0 && frames.size() > how.mostFrames ? (frames.size() + how.mostFrames - 1) / how.mostFrames : 1;
    for (std::size_t k = 0; k < frames.size(); k += stride) times.push_back(frames[k]);
  }
  double worstFrame = -1, worstFrameAt = 0;
  for (std::size_t k = 0; k < times.size(); ++k) {
    const double t = times[k];
    ++o.samples;
    const auto p = oursPose.vertices(t, only), q = theirsVertices(t, only);
    if (p.empty() || q.empty()) {
      ADD_FAILURE() << model << ": no vertices (" << p.size() << ", " << q.size() << ")";
      return o;
    }
    const double cell = std::max(size / 50, 1e-9);
    const double dev = std::max(farthestFromNearest(p, q, cell), farthestFromNearest(q, p, cell)) / size;
    o.deviation = std::max(o.deviation, dev);
    if (q.size() == start.size())
      for (std::size_t i = 0; i < q.size(); ++i) o.motion = std::max(o.motion, distance(q[i], start[i]) / size);
    if (k >= 5) {
      if (dev > worstFrame) worstFrame = dev, worstFrameAt = t;
      continue;
    }
    char text[64];
    std::snprintf(text, sizeof text, "%s%.3g%% at %.3g s", k ? ", " : "", dev * 100, t);
    o.detail += text;
  }
  if (worstFrame >= 0) {
    char text[96];
    std::snprintf(text, sizeof text, "; at %d source frames at most %.3g%% (%.3g s)", o.samples - 5, worstFrame * 100,
                  worstFrameAt);
    o.detail += text;
  }
  return o;
}

// The rate zt2export names when its samples miss frames of the source, as
// the arguments that ask for it; none when it named none.
std::vector<std::string> namedSampleRate(const std::string& messages) {
  const std::string option = "--set sampleRate=";
  const std::size_t at = messages.find(option);
  if (at == std::string::npos) return {};
  const std::size_t end = messages.find_first_not_of("0123456789", at + option.size());
  return {"--set", messages.substr(at + 6, end - at - 6)};
}

// Compared at every frame of the source, at the rate zt2export names when
// it samples past some of them.
Outcome compareAtSourceFrames(const std::string& model, Comparison how) {
  how.sourceFrames = true;
  Outcome o = compareModel(model, how);
  if (const auto rate = namedSampleRate(o.messages); !rate.empty()) {
    how.options.insert(how.options.end(), rate.begin(), rate.end());
    o = compareModel(model, how);
    o.detail = rate[1] + ": " + o.detail;
  }
  return o;
}

struct Tally {
  int models = 0, compared = 0, againstScene = 0, within = 0, refused = 0, notRead = 0;
  double largest = 0;
};

// Of the model's size. The corpus: a vertex blended between bones whose
// start differs from the model's bind pose moves by the blend of that
// difference (docs/import.md, Skins), up to 0.9% (X Testwuson; the flag
// 0.5%). Models of one bone per vertex: what float precision leaves.
constexpr double kTolerance = 0.01;
constexpr double kExactTolerance = 0.001;

void record(Tally& tally, const std::string& name, const Outcome& o) {
  ++tally.models;
  if (o.kind == Outcome::RefusedByExport) {
    ++tally.refused;
    return;
  }
  if (o.kind == Outcome::NotReadByAssimp) {
    ++tally.notRead;
    return;
  }
  ++tally.compared;
  tally.againstScene += o.againstScene;
  tally.within += o.deviation <= kTolerance;
  tally.largest = std::max(tally.largest, o.deviation);
  EXPECT_LE(o.deviation, kTolerance) << name << ": skinned vertices " << o.deviation * 100 << "% of the model's size apart, "
                               << o.detail;
}

void print(const std::string& directory, const Tally& t) {
  std::printf("corpus skinning %s: %d skinned and animated, %d compared (%d with the import library's glTF, %d with "
              "its scene where it writes none), %d within 1%% (largest deviation %.3g%% of the model's size), %d "
              "refused by zt2export, %d not read by assimp\n",
              directory.c_str(), t.models, t.compared, t.compared - t.againstScene, t.againstScene, t.within,
              t.largest * 100, t.refused, t.notRead);
}

const fs::path& corpus() {
  static const fs::path dir(ZTX_ASSIMP_MODELS);
  return dir;
}

// Directory -> its listed models.
std::map<std::string, std::vector<std::string>> listedModels() {
  std::map<std::string, std::vector<std::string>> out;
  for (const std::string& line : ztx_test::listedLines("tests/data/skinned-animated.txt"))
    out[line.substr(0, line.find('/'))].push_back(line);
  return out;
}

std::vector<std::string> directories() {
  std::vector<std::string> out;
  for (const auto& [dir, models] : listedModels()) out.push_back(dir);
  return out;
}

bool haveAssimpTool() { return ztx_test::run("/usr/bin/env", {"assimp", "version"}).exitCode == 0; }

class SkinningCorpus : public testing::TestWithParam<std::string> {};

TEST_P(SkinningCorpus, SkinnedVerticesMatchTheImportLibrarysOwnGltf) {
  if (!fs::is_directory(corpus()))
    GTEST_SKIP() << corpus() << " not found: install Debian's assimp-testmodels or set ZTX_ASSIMP_MODELS";
  if (!haveAssimpTool()) GTEST_SKIP() << "the assimp command (assimp-utils) not found";
  Tally tally;
  const auto listed = listedModels();
  for (const std::string& relative : listed.at(GetParam())) {
    SCOPED_TRACE(relative);
    const fs::path model = corpus() / relative;
    ASSERT_TRUE(fs::exists(model)) << "listed in tests/data/skinned-animated.txt but not in the corpus";
    Comparison how;
    // Every source frame of a long take costs an export and a posing each;
    // the instrumented build, many times slower, looks at fewer of them
    // (still spread over the whole take): its errors are memory faults, which
    // any frame shows.
#if defined(ZTX_SANITIZED)
    how.mostFrames = 100;
#else
    how.mostFrames = 800;
#endif
    const Outcome o = compareAtSourceFrames(model.string(), how);
    std::printf("  %s: %s %.3g%% %s\n", relative.c_str(),
                o.kind == Outcome::RefusedByExport ? "refused" : o.kind == Outcome::NotReadByAssimp ? "not read"
                : o.againstScene                         ? "compared with the scene"
                                                         : "compared with the glTF",
                o.deviation * 100, o.detail.c_str());
    record(tally, relative, o);
  }
  print(GetParam(), tally);
  // Every listed model is exported and read by the library: a refusal fails
  // here, not only a deviation.
  EXPECT_EQ(tally.compared, static_cast<int>(listed.at(GetParam()).size()));
  EXPECT_EQ(tally.refused, 0);
  EXPECT_EQ(tally.notRead, 0);
}

TEST(SkinningFlag, AClothOfBonesUnderAPoleWavesAsTheImportLibrarysOwnGltf) {
  if (!haveAssimpTool()) GTEST_SKIP() << "the assimp command (assimp-utils) not found";
  ztx_test::TempDir dir;
  ztx_test::writeFlag(dir.path().string());
  const Outcome o = compareModel(dir.file("flag.md5mesh"));
  ASSERT_EQ(o.kind, Outcome::Compared) << o.detail;
  std::printf("  flag.md5mesh: %.3g%% %s; moves %.3g%%\n", o.deviation * 100, o.detail.c_str(), o.motion * 100);
  // The cloth does wave: its vertices travel a good part of its size.
  EXPECT_GT(o.motion, 0.1);
  Tally tally;
  record(tally, "flag.md5mesh", o);
  print("flag (made by the test)", tally);

  // Its bones hang from one another as in the model: the last of the top
  // edge under the pole through the three before it.
  const auto e = ztx_test::runExport(ztx_test::exportArgs(dir, dir.file("flag.md5mesh"), dir.file("flag.zt2")));
  ASSERT_EQ(e.exitCode, 0) << e.out << e.err;
  ASSERT_EQ(ztx_test::runDump({dir.file("flag.zt2"), "--gltf", dir.file("flag.glb")}).exitCode, 0);
  const tinygltf::Model m = ztx_test::readGlb(dir.file("flag.glb"));
  std::map<int, int> parent;
  std::map<std::string, int> byName;
  for (std::size_t i = 0; i < m.nodes.size(); ++i) {
    byName[m.nodes[i].name] = static_cast<int>(i);
    for (int c : m.nodes[i].children) parent[c] = static_cast<int>(i);
  }
  std::vector<std::string> chain;
  for (auto it = parent.find(byName.at("top4")); it != parent.end(); it = parent.find(it->second))
    chain.push_back(m.nodes[static_cast<std::size_t>(it->second)].name);
  EXPECT_EQ(std::vector<std::string>(chain.begin(), chain.begin() + std::min<std::size_t>(chain.size(), 5)),
            (std::vector<std::string>{"top3", "top2", "top1", "pole", "origin"}));
  ASSERT_EQ(m.skins.size(), 1u);
  EXPECT_EQ(m.nodes[static_cast<std::size_t>(byName.at("top4"))].extras.Get("type").Get<std::string>(), "bone");
}

// Bones without objects, worked out by hand: "Arm" (no object) stands at host
// (0, 0, 2) and turns half round about x over the second; "Hand" (no object)
// hangs 3 above it and turns half round about x as well, so it ends upright;
// the quad "Sleeve", a child of Arm, has two corners on each. The file names
// the bones' parents only in their keys. A half turn maps (x, y, z) to
// (x, -y, -z) whichever way it goes; host (x, y, z) is glTF's (x, z, -y).
struct HandCase {
  const char* name;
  const char* retainHierarchies;
  const char* binding;  // the physique vertices of the four corners
  bool skinned;
  std::vector<Vec3> atEnd;  // the corners in glTF after the turn
};

void PrintTo(const HandCase& c, std::ostream* os) { *os << c.name; }

class SkinningByHand : public testing::TestWithParam<HandCase> {};

TEST_P(SkinningByHand, CornersFollowTheirBonesAsWorkedOut) {
  const HandCase& c = GetParam();
  ztx_test::TempDir dir;
  ztx_test::writeText(dir.file("arm.scene.json"), std::string(R"({"version": 1, "frameRate": 30, "animationRange": [0, 30],
    "materials": [{"id": "red", "type": "ztMaterial", "name": "Red", "diffuse": [1, 0, 0], "params": {"plainLayerMode": 1}}],
    "objects": [{"id": "quad", "type": "mesh", "mesh": {"vertices": [1, 0, 1, 1, 1, 3, 2, 1, 3, 2, 0, 1],
                 "faces": [0, 1, 2, 0, 2, 3], "smoothingGroups": [1, 1]}}],
    "nodes": [
      {"name": "Arm", "modifiers": [{"type": "physique"}], "transform": {"position": [0, 0, 2],
       "rotation": {"keys": [{"frame": 0, "value": {"eulerDegrees": [0, 0, 0]}}, {"frame": 30, "value": {"eulerDegrees": [180, 0, 0]}}]}},
       "children": [{"name": "Hand", "modifiers": [{"type": "physique"}], "transform": {"position": [0, 0, 3],
         "rotation": {"keys": [{"frame": 0, "value": {"eulerDegrees": [0, 0, 0]}}, {"frame": 30, "value": {"eulerDegrees": [180, 0, 0]}}]}}},
        {"name": "Sleeve", "object": "quad", "material": "red", "modifiers": [{"type": "physique", "vertices": )") +
                                                   c.binding + "}]}]}]}");
  const auto e = ztx_test::runExport(ztx_test::exportArgs(
      dir, dir.file("arm.scene.json"), dir.file("arm.zt2"),
      {"--set", "decreaseEndFrameByOne=0", "--set", std::string("retainHierarchies=") + c.retainHierarchies}));
  ASSERT_EQ(e.exitCode, 0) << e.out << e.err;
  const auto d = ztx_test::runDump({dir.file("arm.zt2"), "--gltf", dir.file("arm.glb")});
  ASSERT_EQ(d.exitCode, 0) << d.err;
  EXPECT_EQ(d.err, "");
  const tinygltf::Model m = ztx_test::readGlb(dir.file("arm.glb"));
  EXPECT_EQ(m.skins.size(), c.skinned ? 1u : 0u);
  // Keys relative to the parent make a child; world keys stay at the root.
  int arm = -1, hand = -1;
  for (std::size_t i = 0; i < m.nodes.size(); ++i) {
    if (m.nodes[i].name == "Arm") arm = static_cast<int>(i);
    if (m.nodes[i].name == "Hand") hand = static_cast<int>(i);
  }
  ASSERT_GE(arm, 0);
  ASSERT_GE(hand, 0);
  const auto& armChildren = m.nodes[static_cast<std::size_t>(arm)].children;
  const bool child = std::find(armChildren.begin(), armChildren.end(), hand) != armChildren.end();
  EXPECT_EQ(child, std::string(c.retainHierarchies) == "1");
  EXPECT_EQ(m.nodes[static_cast<std::size_t>(hand)].extras.Get("parentName").Get<std::string>(), "Arm");

  const GltfPose pose(m);
  const std::vector<Vec3> atStart{{1, 3, 0}, {1, 5, -1}, {2, 5, -1}, {2, 3, 0}};
  for (const auto& [time, want] : {std::pair{0.0, atStart}, std::pair{1.0, c.atEnd}}) {
    const auto got = pose.vertices(time);
    EXPECT_LT(std::max(farthestFromNearest(got, want, 1), farthestFromNearest(want, got, 1)), 1e-4) << "at " << time << " s";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Bones, SkinningByHand,
    testing::Values(HandCase{"WorldKeys", "0", R"(["Arm", "Hand", "Hand", "Arm"])", true,
                             {{1, 1, 0}, {1, -1, -1}, {2, -1, -1}, {2, 1, 0}}},
                    // Bound to its own node only: a plain mesh, which moves with Arm whole.
                    HandCase{"PlainMesh", "1", R"(["Sleeve", "Sleeve", "Sleeve", "Sleeve"])", false,
                             {{1, 1, 0}, {1, -1, 1}, {2, -1, 1}, {2, 1, 0}}}),
    [](const auto& info) { return std::string(info.param.name); });

// Small models written here, each showing one way an import can part from
// the source: two nodes of one name, vertices at one place held by
// different bones, a clip faster than the export samples. Each is compared
// with the import library's own conversion at every frame of the source,
// within 0.1% of its size; where names repeat, with that of the same model
// whose names differ, which the library binds unambiguously.

using ztx_test::append;
using ztx_test::b3dNode;
using ztx_test::Bytes;
using ztx_test::put;

// A body square and an arm square beside it, the arm's inner corners at the
// body's outer ones; the arm bone (a child of the mesh's node) rises and
// swings, unevenly, once over the clip, one key per frame.
Bytes walkB3d(const std::string& root, const std::string& bone, float fps, int frames) {
  Bytes vertices, triangles, anim, weights, keys, version;
  for (std::int32_t v : {0, 0, 0}) put(vertices, v);
  for (float v : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 1.f, 1.f, 0.f, 0.f, 1.f, 0.f,    // body
                  1.f, 0.f, 0.f, 2.f, 0.f, 0.f, 2.f, 1.f, 0.f, 1.f, 1.f, 0.f})  // arm
    put(vertices, v);
  put(triangles, std::int32_t{-1});
  for (std::int32_t v : {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7}) put(triangles, v);
  for (std::int32_t v : {4, 5, 6, 7}) put(weights, v), put(weights, 1.0f);
  put(keys, std::int32_t{1 | 4});  // position and rotation
  for (int f = 0; f <= frames; ++f) {
    const double s = std::sin(3.14159265358979 * f / frames), a = 0.9 * s * s;
    put(keys, std::int32_t{f});
    for (float v : {1.0f, 0.0f, static_cast<float>(0.5 * s)}) put(keys, v);
    for (double v : {std::cos(a / 2), 0.0, std::sin(a / 2), 0.0}) put(keys, static_cast<float>(v));
  }
  put(anim, std::int32_t{0}), put(anim, std::int32_t{frames}), put(anim, fps);
  Bytes mesh;
  put(mesh, std::int32_t{-1});
  append(mesh, ztx_test::b3dChunk("VRTS", vertices));
  append(mesh, ztx_test::b3dChunk("TRIS", triangles));
  Bytes inside = ztx_test::b3dChunk("MESH", mesh);
  append(inside, ztx_test::b3dChunk("ANIM", anim));
  Bytes boneInside = ztx_test::b3dChunk("BONE", weights);
  append(boneInside, ztx_test::b3dChunk("KEYS", keys));
  append(inside, b3dNode(bone, {1, 0, 0}, boneInside));
  put(version, std::int32_t{1});
  append(version, b3dNode(root, {0, 0, 0}, inside));
  return ztx_test::b3dChunk("BB3D", version);
}

// Two triangles sharing an edge, one held by `body`, the other by its child
// `arm`, which turns about the shared edge's line.
Bytes armSmd(const std::string& body, const std::string& arm) {
  std::string text = "version 1\nnodes\n0 \"" + body + "\" -1\n1 \"" + arm + "\" 0\nend\nskeleton\n";
  for (int f = 0; f <= 8; ++f) {
    char line[96];
    std::snprintf(line, sizeof line, "time %d\n0 0 0 0 0 0 0\n1 1 0 0 %.4f 0 0\n", f, 1.2 * std::pow(f / 8.0, 2));
    text += line;
  }
  text += "end\ntriangles\nskin\n0 0 0 0 0 0 1 0 0 1 0 1\n0 1 0 0 0 0 1 1 0 1 0 1\n0 1 1 0 0 0 1 1 1 1 0 1\n"
          "skin\n1 1 0 0 0 0 1 0 0 1 1 1\n1 2 0 0 0 0 1 1 0 1 1 1\n1 1 1 0 0 0 1 1 1 1 1 1\nend\n";
  return Bytes(text.begin(), text.end());
}

struct SmallModel {
  const char* name;
  const char* file;
  Bytes (*model)(bool twin);  // twin: the same model with every name its own
  bool twin;                  // compared with the twin's conversion
  std::vector<std::string> options;  // of zt2export, first
  const char* warning;        // what zt2export says of it, if anything
};

void PrintTo(const SmallModel& c, std::ostream* os) { *os << c.name; }

class SkinningSmall : public testing::TestWithParam<SmallModel> {};

TEST_P(SkinningSmall, MatchesTheImportLibraryAtEverySourceFrame) {
  if (!haveAssimpTool()) GTEST_SKIP() << "the assimp command (assimp-utils) not found";
  const SmallModel& c = GetParam();
  ztx_test::TempDir dir;
  const std::string model = dir.file(c.file), twin = dir.file(std::string("twin-") + c.file);
  ztx_test::writeBytes(model, c.model(false));
  ztx_test::writeBytes(twin, c.model(true));
  Comparison how{c.twin ? twin : model, c.options, true, true};
  Outcome o = compareModel(model, how);
  EXPECT_NE(o.messages.find(c.warning), std::string::npos) << o.messages;
  // Sampled past frames of the source, the export says which rate keeps them all.
  if (const auto rate = namedSampleRate(o.messages); !rate.empty()) {
    how.options = rate;
    o = compareModel(model, how);
  }
  ASSERT_EQ(o.kind, Outcome::Compared) << o.detail;
  std::printf("  %s: %.3g%% %s; moves %.3g%%\n", c.file, o.deviation * 100, o.detail.c_str(), o.motion * 100);
  EXPECT_GT(o.motion, 0.1);  // the moving part does move
  EXPECT_GT(o.samples, 10);
  EXPECT_LE(o.deviation, kExactTolerance) << o.detail;
}

INSTANTIATE_TEST_SUITE_P(
    Written, SkinningSmall,
    testing::Values(
        // The bone inside the mesh's node repeats its name: its keys are its own.
        SmallModel{"RepeatedNameB3d", "walk.b3d", [](bool twin) { return walkB3d("Body", twin ? "Bone" : "Body", 30, 8); },
                   true, {}, "2 nodes are named \"Body\"; they are told apart as \"Body\", \"Body#2\""},
        // The arm's inner corners lie on the body's: they stay the arm's.
        SmallModel{"CornersOfTwoBonesSmd", "arm.smd", [](bool) { return armSmd("body", "arm"); }, false, {}, ""},
        // A clip of 60 frames a second is sampled at its own rate; asked for 30,
        // the export says what that loses.
        SmallModel{"SixtyFramesB3d", "walk.b3d", [](bool) { return walkB3d("Body", "Bone", 60, 8); }, false, {}, ""},
        SmallModel{"SixtyFramesAt30B3d", "walk.b3d", [](bool) { return walkB3d("Body", "Bone", 60, 8); }, false,
                   {"--set", "sampleRate=30"},
                   "the model's animation has 60 frames a second and the export samples 30: 1 source frame in 2 "
                   "falls between samples; --set sampleRate=60 keeps them all"}),
    [](const auto& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(Assimp, SkinningCorpus, testing::ValuesIn(directories()),
                         [](const auto& info) { return ztx_test::testName(info.param); });

}  // namespace
