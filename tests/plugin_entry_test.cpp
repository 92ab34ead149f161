// The host interface as the exporter meets it: the plugin's entry points and
// identity, the info log, file names split as the host splits them, and the
// host matrix functions in row-vector convention, checked by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <tuple>

#include "host/max_types.h"
#include "plugin/info_log.h"
#include "plugin/plugin_entry.h"
#include "plugin/scene_exporter.h"

TEST(PluginEntry, OneClassWithItsIdentity) {
  EXPECT_EQ(LibNumberClasses(), 1);
  ASSERT_NE(LibClassDesc(0), nullptr);
  EXPECT_EQ(LibClassDesc(1), nullptr);
  EXPECT_STREQ(LibDescription(), "ZT Scene Exporter [Mar 31 2003]");
  EXPECT_EQ(LibVersion(), 0x13EC0800u);
  ClassDesc& d = *LibClassDesc(0);
  EXPECT_EQ(d.IsPublic(), 1);
  EXPECT_STREQ(d.ClassName(), "ZT Exporter");
  EXPECT_EQ(d.SuperClassID(), 0xA20u);
  EXPECT_EQ(d.ClassID(), Class_ID(0x6EAB566C, 0x134A2F42));
  EXPECT_STREQ(d.Category(), "Tessel Entertainment");
}

TEST(PluginEntry, ExporterIdentityThroughTheHostInterface) {
  const std::unique_ptr<SceneExport> e(static_cast<SceneExport*>(LibClassDesc(0)->Create(FALSE)));
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->ExtCount(), 1);
  EXPECT_STREQ(e->Ext(0), "zt2");
  EXPECT_STREQ(e->Ext(1), "");
  EXPECT_STREQ(e->LongDesc(), "ZT Scene Exporter");
  EXPECT_STREQ(e->ShortDesc(), "ZT Exporter");
  EXPECT_EQ(e->Version(), 110u);
  EXPECT_EQ(e->SupportsOptions(0, SCENE_EXPORT_SELECTED), FALSE);  // not even the selection-only export
}

TEST(InfoLog, LinesKeepTheirOrderAndAreCutAt1023Bytes) {
  InfoLog log;
  log.logMessage("ERROR: %s", "first");
  log.logMessage("%s", std::string(2000, 'x').c_str());
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0], "ERROR: first");
  EXPECT_EQ(log.lines()[1].size(), 1023u);
  EXPECT_EQ(log.text(), "ERROR: first\r\n" + std::string(1023, 'x') + "\r\n");
}

TEST(SplitFilename, KeepsTheSeparatorAndTheDot) {
  for (const auto& [whole, dir, name, extension] : {std::tuple{"/out/scene.zt2", "/out/", "scene", ".zt2"},
                                                    {"scene", "", "scene", ""}, {"dir.v2/scene", "dir.v2/", "scene", ""}}) {
    std::string path, file, ext;
    BMMSplitFilename(whole, path, file, ext);
    EXPECT_EQ(std::tie(path, file, ext), std::tuple(std::string(dir), std::string(name), std::string(extension)));
  }
}

namespace {

void expectNear(const Point3& a, const Point3& b, float tol = 1e-5f) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

}  // namespace

TEST(Matrix3, RotateXTurnsUpIntoTheFileAxes) {
  // (x, y, z) -> (x, y cos a - z sin a, y sin a + z cos a)
  const Point3 p = Point3(1, 2, 3) * RotateXMatrix(-1.5707964f);
  expectNear(p, {1, 3, -2});
  const Matrix3 r = RotateXMatrix(0.5f);
  expectNear(r.GetRow(1), {0, std::cos(0.5f), std::sin(0.5f)});
  expectNear(r.GetRow(2), {0, -std::sin(0.5f), std::cos(0.5f)});
}

TEST(Matrix3, ProductAppliesTheLeftMatrixFirst) {
  const Matrix3 t = TransMatrix({1, 0, 0});
  const Matrix3 s = ScaleMatrix({2, 2, 2});
  expectNear(Point3(0, 0, 0) * (t * s), {2, 0, 0});
  expectNear(Point3(0, 0, 0) * (s * t), {1, 0, 0});
}

TEST(Matrix3, InverseUndoesAnAffineTransform) {
  Matrix3 m = RotateZMatrix(0.3f) * ScaleMatrix({1, 2, 3}) * TransMatrix({4, 5, 6});
  const Matrix3 id = m * Inverse(m);
  for (int r = 0; r < 4; ++r) expectNear(id.GetRow(r), Matrix3().GetRow(r));
}

TEST(Matrix3, ObjectOffsetScalesThenRotatesThenTranslates) {
  ScaleValue s;
  s.s = {2, 1, 1};
  const Quat quarterTurnZ{0, 0, 0.70710678f, 0.70710678f};
  const Matrix3 m = ObjectOffsetMatrix({10, 0, 0}, quarterTurnZ, s);
  // (1, 0, 0) scaled to (2, 0, 0), turned a quarter about Z to (0, 2, 0), moved by 10 in x.
  expectNear(Point3(1, 0, 0) * m, {10, 2, 0});
}

TEST(Matrix3, NegativeScaleMirrors) {
  ScaleValue s;
  s.s = {-1, 1, 1};
  const Matrix3 m = ObjectOffsetMatrix({}, Quat{}, s);
  EXPECT_LT(DotProd(CrossProd(m.GetRow(0), m.GetRow(1)), m.GetRow(2)), 0.0f);
}
