#include <gtest/gtest.h>

#include <memory>
#include <tuple>

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
