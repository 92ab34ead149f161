// The host interface as the exporter meets it: the plugin's entry points and
// identity, the info log, file names split as the host splits them, and the
// inverse of the host matrices.
#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "host/max_types.h"
#include "plugin/info_log.h"
#include "plugin/plugin_entry.h"
#include "plugin/scene_exporter.h"

// The version a host checks before loading the module, the class's name
// and the version number are zt2export's --version (module_test.cpp); the
// ids are what a host finds the exporter by.
TEST(PluginEntry, OneClassWithItsIdentity) {
  EXPECT_EQ(LibNumberClasses(), 1);
  ASSERT_NE(LibClassDesc(0), nullptr);
  EXPECT_EQ(LibClassDesc(1), nullptr);
  EXPECT_EQ(LibClassDesc(0)->SuperClassID(), 0xA20u);
  EXPECT_EQ(LibClassDesc(0)->ClassID(), Class_ID(0x6EAB566C, 0x134A2F42));

  // The exporter it creates, through the host's interface.
  const std::unique_ptr<SceneExport> e(static_cast<SceneExport*>(LibClassDesc(0)->Create(FALSE)));
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->ExtCount(), 1);
  EXPECT_STREQ(e->Ext(0), "zt2");
  EXPECT_STREQ(e->Ext(1), "");
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

// The matrix functions are met whole in the transforms the tests read back: the
// axis turn (scene_walk_test.cpp), products and scales in node and object
// transforms, a mirroring offset (hostmodel_scene_test.cpp,
// geometry_export_mesh_test.cpp). The inverse is used only for transforms
// relative to a parent, so it is checked here on scaled axes too.
TEST(Matrix3, InverseUndoesAnAffineTransform) {
  Matrix3 m = RotateZMatrix(0.3f) * ScaleMatrix({1, 2, 3}) * TransMatrix({4, 5, 6});
  const Matrix3 id = m * Inverse(m);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(id.GetRow(r)[c], Matrix3().GetRow(r)[c], 1e-5f) << r << "," << c;
}
