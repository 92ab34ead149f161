// Scene settings and the recorded user-interface calls of the host model.
#include <gtest/gtest.h>

#include "host/inode.h"
#include "host/material.h"
#include "host/memory/memory_host.h"
#include "support/test_support.h"

namespace {

using hostmodel::loadSceneFromString;
using hostmodel::ProgressCall;

TEST(HostModelHost, DefaultsAreThirtyFramesASecondAndFramesZeroToHundred) {
  auto host = loadSceneFromString("{}", "", "empty.json");
  EXPECT_EQ(host->GetFrameRate(), 30);
  EXPECT_EQ(host->GetTicksPerFrame(), 160);
  EXPECT_EQ(host->GetAnimRange(), Interval(0, 16000));
  EXPECT_EQ(host->GetRootNode()->NumberOfChildren(), 0);
  EXPECT_EQ(host->GetDir(APP_PLUGCFG_DIR), "");
}

TEST(HostModelHost, AnimationRangeIsGivenInFramesOfTheScenesRate) {
  auto host = loadSceneFromString(R"({"frameRate": 24, "animationRange": [10, 40]})", "", "s.json");
  EXPECT_EQ(host->GetTicksPerFrame(), 200);
  EXPECT_EQ(host->GetAnimRange(), Interval(2000, 8000));
}

TEST(HostModelHost, SetFrameRateChangesTicksPerFrameButNotTheRange) {
  auto host = loadSceneFromString(R"({"animationRange": [0, 30]})", "", "s.json");
  host->SetFrameRate(25);
  EXPECT_EQ(host->GetFrameRate(), 25);
  EXPECT_EQ(host->GetTicksPerFrame(), 192);
  host->SetFrameRate(7);
  EXPECT_EQ(host->GetTicksPerFrame(), 685);  // integer division, as the host does
  EXPECT_EQ(host->GetAnimRange(), Interval(0, 4800));
}

TEST(HostModelHost, FrameRateZeroOrBelowAnswersOneSecondPerFrame) {
  auto host = loadSceneFromString("{}", "", "s.json");
  host->SetFrameRate(0);
  EXPECT_EQ(host->GetTicksPerFrame(), 4800);
  host->SetFrameRate(-5);
  EXPECT_EQ(host->GetTicksPerFrame(), 4800);
}

TEST(HostModelHost, CancelAnswersTrueFromTheNthCallOn) {
  auto host = loadSceneFromString("{}", "", "s.json");
  host->setCancelFromCall(3);
  EXPECT_FALSE(host->GetCancel());
  EXPECT_FALSE(host->GetCancel());
  EXPECT_TRUE(host->GetCancel());
  EXPECT_TRUE(host->GetCancel());
  EXPECT_EQ(host->cancelQueries(), 4);
}

TEST(HostModelHost, CancelNeverWithZero) {
  auto host = loadSceneFromString("{}", "", "s.json");
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(host->GetCancel());
  host->setCancelFromCall(1);
  EXPECT_TRUE(host->GetCancel());
}

TEST(HostModelHost, ProgressCallsAreRecordedAndObserved) {
  auto host = loadSceneFromString("{}", "", "s.json");
  std::vector<ProgressCall> seen;
  host->setProgressObserver([&](const ProgressCall& c) { seen.push_back(c); });
  host->ProgressStart("Progress", true);
  host->ProgressUpdate(50, false, "Geometry for \"Box\"");
  host->ProgressEnd();
  const auto& calls = host->progressCalls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].kind, ProgressCall::Start);
  EXPECT_EQ(calls[0].title, "Progress");
  EXPECT_TRUE(calls[0].show);
  EXPECT_EQ(calls[1].kind, ProgressCall::Update);
  EXPECT_EQ(calls[1].percent, 50);
  EXPECT_EQ(calls[1].title, "Geometry for \"Box\"");
  EXPECT_FALSE(calls[1].show);
  EXPECT_EQ(calls[2].kind, ProgressCall::End);
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[1].percent, 50);
}

TEST(HostModelHost, MessageBoxesAndInfoTextsAreRecorded) {
  auto host = loadSceneFromString("{}", "", "s.json");
  host->MessageBox("Unable to write to x.zt2.\n\nExport cancelled.", "ZTExport");
  host->ShowExportInfo("ERROR: something");
  ASSERT_EQ(host->messageBoxes().size(), 1u);
  EXPECT_EQ(host->messageBoxes()[0], "Unable to write to x.zt2.\n\nExport cancelled.");
  ASSERT_EQ(host->exportInfoTexts().size(), 1u);
  EXPECT_EQ(host->exportInfoTexts()[0], "ERROR: something");
}

TEST(HostModelHost, ConfigDirectoryIsResolvedAgainstTheSceneAndCanBeSet) {
  auto host = loadSceneFromString(R"({"configDir": "cfg"})", "/scenes/a", "s.json");
  EXPECT_EQ(host->GetDir(APP_PLUGCFG_DIR), "/scenes/a/cfg");
  EXPECT_EQ(host->GetDir(1), "");
  host->setConfigDir("/tmp/x");
  EXPECT_EQ(host->GetDir(APP_PLUGCFG_DIR), "/tmp/x");
}

TEST(HostModelHost, AmbientAndBackgroundColoursAtATick) {
  auto host = loadSceneFromString(R"({
      "ambientColor": [0.1, 0.2, 0.3],
      "backgroundColor": {"keys": [{"frame": 0, "value": [0, 0, 0]}, {"frame": 10, "value": [1, 0.5, 0]}]}})",
                                  "", "s.json");
  Interval valid = FOREVER;
  const Color ambient = host->GetAmbient(800, valid);
  EXPECT_FLOAT_EQ(ambient.r, 0.1f);
  EXPECT_FLOAT_EQ(ambient.g, 0.2f);
  EXPECT_FLOAT_EQ(ambient.b, 0.3f);
  EXPECT_EQ(valid, FOREVER);
  const Color background = host->GetBackGround(800, valid);
  EXPECT_FLOAT_EQ(background.r, 0.5f);
  EXPECT_FLOAT_EQ(background.g, 0.25f);
  EXPECT_EQ(valid, Interval(800, 800));
}

TEST(HostModelHost, LoadsAFileAndResolvesPathsBesideIt) {
  ztx_test::TempDir dir;
  ztx_test::writeText(dir.file("scene.json"),
                      R"({"configDir": "cfg", "texmaps": [{"id": "t", "type": "bitmap", "files": ["img/a.png"]}]})");
  auto host = hostmodel::loadScene(dir.file("scene.json"));
  EXPECT_EQ(host->sourceName(), dir.file("scene.json"));
  EXPECT_EQ(host->GetDir(APP_PLUGCFG_DIR), dir.file("cfg"));
  ASSERT_NE(host->findTexmap("t"), nullptr);
  EXPECT_EQ(host->findTexmap("t")->GetFile(0), dir.file("img/a.png"));
}

}  // namespace
