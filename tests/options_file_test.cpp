// ZTExport.cfg: defaults, every format version from the committed files,
// saving with the texture path history, and damaged files.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "format/memory_file.h"
#include "options/options_dialog.h"
#include "support/test_support.h"

namespace {

using ztx_test::TempDir;

std::string cfgData(int version) {
  return ztx_test::sourcePath("tests/data/cfg/version" + std::to_string(version) + ".cfg");
}

// A record with every default (no file in `dir`), then pointed at `path` and
// loaded, so that the sample rate and scene frame rate the file gives stay
// visible (the constructor replaces them with the host's rate).
struct Loaded {
  std::unique_ptr<OptionsDialog> record;
  bool result = false;
};
Loaded loadFrom(const TempDir& dir, const std::string& path) {
  Loaded l;
  l.record = std::make_unique<OptionsDialog>(dir.path().string(), 30);
  l.record->configFilePath = path;
  l.result = l.record->loadOptions();
  return l;
}

void expectAllDefaults(const OptionsDialog& r, int sampleRate) {
  EXPECT_EQ(r.exportGeometry, 1);
  EXPECT_EQ(r.exportSkinning, 1);
  EXPECT_EQ(r.exportAnimation, 1);
  EXPECT_EQ(r.exportCameras, 1);
  EXPECT_EQ(r.exportLights, 1);
  EXPECT_EQ(r.exportMaterials, 1);
  EXPECT_EQ(r.exportHelpers, 1);
  EXPECT_EQ(r.exportEnvironment, 1);
  EXPECT_EQ(r.removeFloatingVertices, 1);
  EXPECT_EQ(r.removeHiddenObjects, 1);
  EXPECT_EQ(r.rescale, 0);
  EXPECT_EQ(r.rescaleFactor, 1.0f);
  EXPECT_EQ(r.texturePath, ".");
  EXPECT_TRUE(r.texturePathHistory.empty());
  EXPECT_EQ(r.copyTextures, 1);
  EXPECT_EQ(r.dumpInfo, 1);
  EXPECT_EQ(r.retainHierarchies, 1);
  EXPECT_EQ(r.pivotAsMeshCenter, 1);
  EXPECT_EQ(r.saveReferencesOnce, 1);
  EXPECT_EQ(r.sampleRate, sampleRate);
  EXPECT_EQ(r.sceneFrameRate, sampleRate);
  EXPECT_EQ(r.positionDelta, 0.001f);
  EXPECT_EQ(r.rotationDelta, 0.001f);
  EXPECT_EQ(r.frameToFrameInterpolation, 0);
  EXPECT_EQ(r.maintainMatrixScaling, 0);
  EXPECT_EQ(r.loop, 1);
  EXPECT_EQ(r.loopInterpolation, 1);
  EXPECT_EQ(r.decreaseEndFrameByOne, 1);
  EXPECT_EQ(r.useGlobalAnimationRange, 1);
  EXPECT_FALSE(r.saveOnClose);
}

// The values the committed files hold (tests/data/cfg/README.md), checked
// against a file of `version`: a value the version has is the file's, any
// other keeps its default.
void expectVersionValues(const OptionsDialog& r, int version) {
  EXPECT_EQ(r.exportGeometry, 0);
  EXPECT_EQ(r.exportAnimation, 0);
  EXPECT_EQ(r.exportCameras, 1);
  EXPECT_EQ(r.exportEnvironment, 0);
  EXPECT_EQ(r.exportHelpers, 1);
  EXPECT_EQ(r.exportLights, 0);
  EXPECT_EQ(r.exportMaterials, 1);
  EXPECT_EQ(r.dumpInfo, 0);
  EXPECT_EQ(r.copyTextures, 0);
  EXPECT_EQ(r.loop, 0);
  EXPECT_EQ(r.loopInterpolation, 0);
  EXPECT_EQ(r.removeFloatingVertices, 0);
  EXPECT_EQ(r.removeHiddenObjects, 1);
  EXPECT_EQ(r.rescale, 1);
  EXPECT_EQ(r.sampleRate, 25);
  EXPECT_EQ(r.sceneFrameRate, 25);
  EXPECT_EQ(r.rotationDelta, 0.25f);
  EXPECT_EQ(r.rescaleFactor, 2.5f);
  const std::string head = "tex/v" + std::to_string(version);
  EXPECT_EQ(r.texturePath, head);
  EXPECT_EQ(r.texturePathHistory, (std::vector<std::string>{head, "old"}));

  EXPECT_EQ(r.retainHierarchies, version >= 2 ? 0 : 1);
  EXPECT_EQ(r.positionDelta, version >= 3 ? 0.125f : 0.001f);
  EXPECT_EQ(r.frameToFrameInterpolation, version >= 4 ? 2 : 0);
  EXPECT_EQ(r.pivotAsMeshCenter, version >= 5 ? 0 : 1);
  EXPECT_EQ(r.maintainMatrixScaling, version >= 6 ? 1 : 0);
  EXPECT_EQ(r.saveReferencesOnce, version >= 7 ? 0 : 1);
  EXPECT_EQ(r.decreaseEndFrameByOne, version >= 8 ? 0 : 1);
  EXPECT_EQ(r.useGlobalAnimationRange, version >= 9 ? 0 : 1);
  EXPECT_EQ(r.exportSkinning, version >= 10 ? 0 : 1);
}

std::vector<std::uint8_t> fileBytes(const std::string& path) {
  const auto v = ztx_test::readBytes(path);
  return {v.begin(), v.end()};
}

// --- writing the file's values by hand, for files the committed set lacks ---

void putInt(std::vector<std::uint8_t>& b, std::int32_t v) {
  b.push_back(0x03);
  std::uint8_t raw[4];
  std::memcpy(raw, &v, 4);
  b.insert(b.end(), raw, raw + 4);
}

std::vector<std::uint8_t> header() { return {'Z', 'T', 'M', 'F', 1, 0, 0, 0}; }

}  // namespace

TEST(OptionsFile, FirstRunHasEveryDefault) {
  TempDir dir;
  OptionsDialog record(dir.path().string(), 24);
  expectAllDefaults(record, 24);
  EXPECT_EQ(record.configFilePath, dir.path().string() + "/ZTExport.cfg");
  EXPECT_FALSE(record.loadOptions());
  EXPECT_FALSE(std::filesystem::exists(record.configFilePath));
}

TEST(OptionsFile, DiscardingWithoutOkWritesNothing) {
  TempDir dir;
  { OptionsDialog record(dir.path().string(), 30); }
  EXPECT_FALSE(std::filesystem::exists(dir.file("ZTExport.cfg")));
}

TEST(OptionsFile, DiscardingAfterOkWritesTheFile) {
  TempDir dir;
  {
    OptionsDialog record(dir.path().string(), 30);
    record.exportLights = 0;
    record.saveOnClose = true;
  }
  OptionsDialog again(dir.path().string(), 30);
  EXPECT_EQ(again.exportLights, 0);
  EXPECT_EQ(again.texturePathHistory, std::vector<std::string>{"."});
}

TEST(OptionsFile, EveryVersionReadsExactlyItsValues) {
  for (int version = 1; version <= 10; ++version) {
    SCOPED_TRACE("version " + std::to_string(version));
    TempDir dir;
    Loaded l = loadFrom(dir, cfgData(version));
    EXPECT_TRUE(l.result);
    expectVersionValues(*l.record, version);
  }
}

TEST(OptionsFile, VersionOneKeepsLaterDefaults) {
  TempDir dir;
  Loaded l = loadFrom(dir, cfgData(1));
  EXPECT_EQ(l.record->rotationDelta, 0.25f);
  EXPECT_EQ(l.record->positionDelta, 0.001f);
  EXPECT_EQ(l.record->retainHierarchies, 1);
}

TEST(OptionsFile, NewerVersionIsIgnored) {
  TempDir dir;
  Loaded l = loadFrom(dir, cfgData(11));
  EXPECT_FALSE(l.result);
  expectAllDefaults(*l.record, 30);
}

TEST(OptionsFile, SampleRateAndSceneRateAreReplacedOnCreation) {
  TempDir dir;
  std::filesystem::copy_file(cfgData(10), dir.file("ZTExport.cfg"));
  OptionsDialog record(dir.path().string(), 60);
  EXPECT_EQ(record.sampleRate, 60);
  EXPECT_EQ(record.sceneFrameRate, 60);
  EXPECT_EQ(record.rotationDelta, 0.25f);
}

TEST(OptionsFile, SavedBytesMatchTheCommittedVersionTenFile) {
  TempDir dir;
  Loaded l = loadFrom(dir, cfgData(10));
  ASSERT_TRUE(l.result);
  l.record->configFilePath = dir.file("ZTExport.cfg");
  l.record->saveOptions();
  EXPECT_EQ(fileBytes(dir.file("ZTExport.cfg")), fileBytes(cfgData(10)));
}

TEST(OptionsFile, RoundTripKeepsEveryValue) {
  TempDir dir;
  {
    OptionsDialog record(dir.path().string(), 30);
    record.exportGeometry = 0;
    record.exportSkinning = 0;
    record.rescale = 1;
    record.rescaleFactor = 3.75f;
    record.texturePath = "maps";
    record.positionDelta = 0.5f;
    record.rotationDelta = 0.0625f;
    record.frameToFrameInterpolation = 1;
    record.maintainMatrixScaling = 1;
    record.decreaseEndFrameByOne = 0;
    record.useGlobalAnimationRange = 0;
    record.saveReferencesOnce = 0;
    record.pivotAsMeshCenter = 0;
    record.retainHierarchies = 0;
    record.saveOptions();
  }
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  ASSERT_TRUE(l.result);
  const OptionsDialog& r = *l.record;
  EXPECT_EQ(r.exportGeometry, 0);
  EXPECT_EQ(r.exportSkinning, 0);
  EXPECT_EQ(r.exportAnimation, 1);
  EXPECT_EQ(r.rescale, 1);
  EXPECT_EQ(r.rescaleFactor, 3.75f);
  EXPECT_EQ(r.texturePath, "maps");
  EXPECT_EQ(r.texturePathHistory, std::vector<std::string>{"maps"});
  EXPECT_EQ(r.positionDelta, 0.5f);
  EXPECT_EQ(r.rotationDelta, 0.0625f);
  EXPECT_EQ(r.frameToFrameInterpolation, 1);
  EXPECT_EQ(r.maintainMatrixScaling, 1);
  EXPECT_EQ(r.decreaseEndFrameByOne, 0);
  EXPECT_EQ(r.useGlobalAnimationRange, 0);
  EXPECT_EQ(r.saveReferencesOnce, 0);
  EXPECT_EQ(r.pivotAsMeshCenter, 0);
  EXPECT_EQ(r.retainHierarchies, 0);
  EXPECT_EQ(r.sampleRate, 30);
}

TEST(OptionsFile, StartEndAndLoopToFramesAreNotSaved) {
  TempDir dir;
  {
    OptionsDialog record(dir.path().string(), 30);
    record.startFrame = 5;
    record.endFrame = 50;
    record.loopToFrame = 7;
    record.saveOptions();
  }
  OptionsDialog again(dir.path().string(), 30);
  EXPECT_EQ(again.startFrame, 0);
  EXPECT_EQ(again.endFrame, 0);
  EXPECT_EQ(again.loopToFrame, 0);
}

// --- the texture path history ---

namespace {
std::vector<std::string> historyAfterSave(const std::vector<std::string>& history, const std::string& current) {
  TempDir dir;
  {
    OptionsDialog record(dir.path().string(), 30);
    record.texturePathHistory = history;
    record.texturePath = current;
    record.saveOptions();
  }
  return loadFrom(dir, dir.file("ZTExport.cfg")).record->texturePathHistory;
}
}  // namespace

TEST(OptionsFile, CurrentPathInHistoryMovesToTheFront) {
  EXPECT_EQ(historyAfterSave({"X", "Y"}, "Y"), (std::vector<std::string>{"Y", "X"}));
}

TEST(OptionsFile, NewPathGoesInFront) {
  EXPECT_EQ(historyAfterSave({"X", "Y"}, "Z"), (std::vector<std::string>{"Z", "X", "Y"}));
}

TEST(OptionsFile, OnlyTheFirstEqualEntryIsRemoved) {
  EXPECT_EQ(historyAfterSave({"A", "B", "A"}, "A"), (std::vector<std::string>{"A", "B", "A"}));
  EXPECT_EQ(historyAfterSave({"B", "A", "C", "A"}, "A"), (std::vector<std::string>{"A", "B", "C", "A"}));
}

TEST(OptionsFile, ComparisonIsByteExact) {
  EXPECT_EQ(historyAfterSave({"Maps", "maps/"}, "maps"), (std::vector<std::string>{"maps", "Maps", "maps/"}));
}

TEST(OptionsFile, EmptyPathIsWrittenAsDot) {
  TempDir dir;
  {
    OptionsDialog record(dir.path().string(), 30);
    record.texturePathHistory = {"X", ""};
    record.texturePath = "";
    record.saveOptions();
    // The record's own history is updated too.
    EXPECT_EQ(record.texturePathHistory, (std::vector<std::string>{"", "X"}));
  }
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_EQ(l.record->texturePathHistory, (std::vector<std::string>{".", "X"}));
  EXPECT_EQ(l.record->texturePath, ".");
}

TEST(OptionsFile, HistoryIsNotLimitedInLength) {
  std::vector<std::string> history;
  for (int i = 0; i < 40; ++i) history.push_back("p" + std::to_string(i));
  const auto saved = historyAfterSave(history, "new");
  ASSERT_EQ(saved.size(), 41u);
  EXPECT_EQ(saved.front(), "new");
  EXPECT_EQ(saved.back(), "p39");
}

// --- damaged files ---

namespace {

// Where each value of version10.cfg ends, in file order, with a check that
// the value was read (or, before that point, that the default stands).
struct ValueEnd {
  std::size_t end;
  std::function<void(const OptionsDialog&, bool read)> check;
};

std::vector<ValueEnd> versionTenLayout() {
  std::vector<ValueEnd> layout;
  std::size_t at = 8;  // file header
  auto intValue = [&](std::function<void(const OptionsDialog&, bool)> check) {
    at += 5;
    layout.push_back({at, std::move(check)});
  };
  auto flagValue = [&](int OptionsDialog::*field, int inFile, int byDefault) {
    intValue([=](const OptionsDialog& r, bool read) { EXPECT_EQ(r.*field, read ? inFile : byDefault); });
  };
  auto floatValue = [&](float OptionsDialog::*field, float inFile, float byDefault) {
    at += 5;
    layout.push_back({at, [=](const OptionsDialog& r, bool read) { EXPECT_EQ(r.*field, read ? inFile : byDefault); }});
  };
  intValue([](const OptionsDialog&, bool) {});  // version
  flagValue(&OptionsDialog::exportGeometry, 0, 1);
  flagValue(&OptionsDialog::exportAnimation, 0, 1);
  flagValue(&OptionsDialog::exportCameras, 1, 1);
  flagValue(&OptionsDialog::exportEnvironment, 0, 1);
  flagValue(&OptionsDialog::exportHelpers, 1, 1);
  flagValue(&OptionsDialog::exportLights, 0, 1);
  flagValue(&OptionsDialog::exportMaterials, 1, 1);
  flagValue(&OptionsDialog::dumpInfo, 0, 1);
  flagValue(&OptionsDialog::copyTextures, 0, 1);
  intValue([](const OptionsDialog&, bool) {});  // retired flag
  flagValue(&OptionsDialog::loop, 0, 1);
  flagValue(&OptionsDialog::loopInterpolation, 0, 1);
  flagValue(&OptionsDialog::removeFloatingVertices, 0, 1);
  flagValue(&OptionsDialog::removeHiddenObjects, 1, 1);
  flagValue(&OptionsDialog::rescale, 1, 0);
  flagValue(&OptionsDialog::sampleRate, 25, 30);
  flagValue(&OptionsDialog::sceneFrameRate, 25, 30);
  floatValue(&OptionsDialog::rotationDelta, 0.25f, 0.001f);
  floatValue(&OptionsDialog::rescaleFactor, 2.5f, 1.0f);
  intValue([](const OptionsDialog&, bool) {});  // path count
  at += 5 + 7;                                  // "tex/v10"
  layout.push_back({at, [](const OptionsDialog& r, bool read) {
                      EXPECT_EQ(r.texturePath, read ? "tex/v10" : ".");
                      EXPECT_EQ(r.texturePathHistory.size() >= 1, read);
                    }});
  at += 5 + 3;  // "old"
  layout.push_back({at, [](const OptionsDialog& r, bool read) {
                      EXPECT_EQ(r.texturePathHistory.size(), read ? 2u : (r.texturePathHistory.empty() ? 0u : 1u));
                    }});
  flagValue(&OptionsDialog::retainHierarchies, 0, 1);
  floatValue(&OptionsDialog::positionDelta, 0.125f, 0.001f);
  flagValue(&OptionsDialog::frameToFrameInterpolation, 2, 0);
  flagValue(&OptionsDialog::pivotAsMeshCenter, 0, 1);
  flagValue(&OptionsDialog::maintainMatrixScaling, 1, 0);
  flagValue(&OptionsDialog::saveReferencesOnce, 0, 1);
  flagValue(&OptionsDialog::decreaseEndFrameByOne, 0, 1);
  flagValue(&OptionsDialog::useGlobalAnimationRange, 0, 1);
  flagValue(&OptionsDialog::exportSkinning, 0, 1);
  return layout;
}

}  // namespace

TEST(OptionsFile, LayoutCoversTheWholeCommittedFile) {
  EXPECT_EQ(versionTenLayout().back().end, fileBytes(cfgData(10)).size());
}

TEST(OptionsFile, TruncatedAtEveryLengthKeepsDefaultsForUnreadValues) {
  const auto full = fileBytes(cfgData(10));
  const auto layout = versionTenLayout();
  TempDir dir;
  const std::string path = dir.file("ZTExport.cfg");
  for (std::size_t length = 0; length < full.size(); ++length) {
    SCOPED_TRACE("length " + std::to_string(length));
    ztx_test::writeBytes(path, std::vector<unsigned char>(full.begin(), full.begin() + length));
    Loaded l = loadFrom(dir, path);
    EXPECT_FALSE(l.result);
    // A file shorter than its header is not one of ours at all.
    for (const ValueEnd& v : layout) v.check(*l.record, length >= 8 && length >= v.end);
  }
}

TEST(OptionsFile, WrongTypeStopsReadingThere) {
  // Version 10, geometry 0, then a float where the animation flag belongs.
  auto bytes = header();
  putInt(bytes, 10);
  putInt(bytes, 0);
  bytes.push_back(0x05);
  bytes.insert(bytes.end(), {0, 0, 0x80, 0x3f});
  putInt(bytes, 0);
  TempDir dir;
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_FALSE(l.result);
  EXPECT_EQ(l.record->exportGeometry, 0);
  EXPECT_EQ(l.record->exportAnimation, 1);
  EXPECT_EQ(l.record->exportCameras, 1);
}

TEST(OptionsFile, WrongHeaderKeepsEveryDefault) {
  auto bytes = fileBytes(cfgData(10));
  bytes[0] = 'X';
  TempDir dir;
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  OptionsDialog record(dir.path().string(), 30);
  expectAllDefaults(record, 30);
}

TEST(OptionsFile, NegativePathCountStopsBeforeTheHistory) {
  auto bytes = fileBytes(cfgData(10));
  // The count sits after the version, 19 values of 5 bytes and the header.
  const std::size_t countAt = 8 + 20 * 5;
  ASSERT_EQ(bytes[countAt], 0x03);
  const std::int32_t negative = -1;
  std::memcpy(&bytes[countAt + 1], &negative, 4);
  TempDir dir;
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_FALSE(l.result);
  EXPECT_EQ(l.record->rescaleFactor, 2.5f);
  EXPECT_TRUE(l.record->texturePathHistory.empty());
  EXPECT_EQ(l.record->texturePath, ".");
  EXPECT_EQ(l.record->retainHierarchies, 1);
}

TEST(OptionsFile, HugePathCountReadsWhatIsThere) {
  auto bytes = fileBytes(cfgData(10));
  const std::size_t countAt = 8 + 20 * 5;
  const std::int32_t huge = 0x7fffffff;
  std::memcpy(&bytes[countAt + 1], &huge, 4);
  TempDir dir;
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_FALSE(l.result);
  EXPECT_EQ(l.record->texturePath, "tex/v10");
  EXPECT_EQ(l.record->texturePathHistory, (std::vector<std::string>{"tex/v10", "old"}));
  // The ints after the paths are not strings: reading stops there.
  EXPECT_EQ(l.record->retainHierarchies, 1);
}

TEST(OptionsFile, StringLengthPastTheEndIsRejected) {
  auto bytes = fileBytes(cfgData(10));
  const std::size_t firstPathAt = 8 + 21 * 5;
  ASSERT_EQ(bytes[firstPathAt], 0x06);
  const std::uint32_t tooLong = 100000;
  std::memcpy(&bytes[firstPathAt + 1], &tooLong, 4);
  TempDir dir;
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_FALSE(l.result);
  EXPECT_EQ(l.record->texturePath, ".");
  EXPECT_EQ(l.record->rescaleFactor, 2.5f);
}

TEST(OptionsFile, UnknownInterpolationMethodKeepsItsDefault) {
  auto bytes = fileBytes(cfgData(10));
  // frameToFrameInterpolation is the third value after the history.
  const std::size_t at = fileBytes(cfgData(10)).size() - 7 * 5;
  ASSERT_EQ(bytes[at], 0x03);
  const std::int32_t seven = 7;
  std::memcpy(&bytes[at + 1], &seven, 4);
  TempDir dir;
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_TRUE(l.result);
  EXPECT_EQ(l.record->frameToFrameInterpolation, 0);
  EXPECT_EQ(l.record->pivotAsMeshCenter, 0);
  EXPECT_EQ(l.record->exportSkinning, 0);
}

TEST(OptionsFile, HeaderOnlyFileKeepsEveryDefault) {
  TempDir dir;
  const auto bytes = header();
  ztx_test::writeBytes(dir.file("ZTExport.cfg"), {bytes.begin(), bytes.end()});
  Loaded l = loadFrom(dir, dir.file("ZTExport.cfg"));
  EXPECT_FALSE(l.result);
  expectAllDefaults(*l.record, 30);
}

TEST(OptionsFile, DirectoryInPlaceOfTheFileKeepsEveryDefault) {
  TempDir dir;
  std::filesystem::create_directory(dir.file("ZTExport.cfg"));
  OptionsDialog record(dir.path().string(), 30);
  expectAllDefaults(record, 30);
}

TEST(OptionsFile, UnwritableDirectoryIsNotReported) {
  TempDir dir;
  OptionsDialog record((dir.path() / "missing" / "deeper").string(), 30);
  record.saveOnClose = true;
  EXPECT_NO_THROW(record.saveOptions());
  EXPECT_FALSE(std::filesystem::exists(record.configFilePath));
}

TEST(OptionsFile, LoadingTwiceDoesNotListPathsTwice) {
  TempDir dir;
  std::filesystem::copy_file(cfgData(10), dir.file("ZTExport.cfg"));
  OptionsDialog record(dir.path().string(), 30);
  EXPECT_TRUE(record.loadOptions());
  EXPECT_EQ(record.texturePathHistory, (std::vector<std::string>{"tex/v10", "old"}));
}
