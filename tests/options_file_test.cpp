// ZTExport.cfg: defaults, every format version from the committed files,
// saving with the texture path history, and damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "options/options_dialog.h"
#include "support/test_support.h"

namespace {

using ztx_test::TempDir;
using D = OptionsDialog;
using Bytes = std::vector<unsigned char>;

std::string cfgData(int version) {
  return ztx_test::sourcePath("tests/data/cfg/version" + std::to_string(version) + ".cfg");
}

// A record with every default (no file in its own directory), then pointed at
// a file and loaded, so that the sample rate and scene frame rate the file
// gives stay visible (the constructor replaces them with the host's rate).
struct Loaded {
  TempDir dir;
  OptionsDialog record{dir.path().string(), 30};
  bool result = false;
  explicit Loaded(const std::string& path) { load(path); }
  explicit Loaded(const Bytes& bytes) {
    ztx_test::writeBytes(dir.file("ZTExport.cfg"), bytes);
    load(dir.file("ZTExport.cfg"));
  }
  void load(const std::string& path) {
    record.configFilePath = path;
    result = record.loadOptions();
  }
};

// The values of the committed file of `version` (tests/data/cfg/README.md) in
// file order: the version a value came with, its size, and a check that it
// was read or, when the reading stopped before it, that the default stands.
struct Step {
  int since;
  std::size_t size;
  std::function<void(const OptionsDialog&, bool read)> check;
  std::size_t end = SIZE_MAX;  // where it ends in the file; SIZE_MAX when the version lacks it
};

template <class T>
Step v(T D::*member, T inFile, T byDefault, int since = 1) {
  return {since, 5, [=](const D& r, bool read) { EXPECT_EQ(r.*member, read ? inFile : byDefault); }};
}
const Step skip{1, 5, [](const D&, bool) {}};

std::vector<Step> layout(int version) {
  const std::string head = "tex/v" + std::to_string(version);
  std::vector<Step> steps = {
      skip /* version */, v(&D::exportGeometry, 0, 1), v(&D::exportAnimation, 0, 1), v(&D::exportCameras, 1, 1),
      v(&D::exportEnvironment, 0, 1), v(&D::exportHelpers, 1, 1), v(&D::exportLights, 0, 1),
      v(&D::exportMaterials, 1, 1), v(&D::dumpInfo, 0, 1), v(&D::copyTextures, 0, 1), skip /* retired flag */,
      v(&D::loop, 0, 1), v(&D::loopInterpolation, 0, 1), v(&D::removeFloatingVertices, 0, 1),
      v(&D::removeHiddenObjects, 1, 1), v(&D::rescale, 1, 0), v(&D::sampleRate, 25, 30),
      v(&D::sceneFrameRate, 25, 30), v(&D::rotationDelta, 0.25f, 0.001f), v(&D::rescaleFactor, 2.5f, 1.0f),
      skip /* path count */,
      {1, 5 + head.size(),
       [=](const D& r, bool read) {
         EXPECT_EQ(r.texturePath, read ? head : ".");
         EXPECT_EQ(r.texturePathHistory.empty(), !read);
       }},
      {1, 5 + 3,
       [=](const D& r, bool read) {
         if (read) EXPECT_EQ(r.texturePathHistory, (std::vector<std::string>{head, "old"}));
         else EXPECT_LE(r.texturePathHistory.size(), 1u);
       }},
      v(&D::retainHierarchies, 0, 1, 2), v(&D::positionDelta, 0.125f, 0.001f, 3),
      v(&D::frameToFrameInterpolation, 2, 0, 4), v(&D::pivotAsMeshCenter, 0, 1, 5),
      v(&D::maintainMatrixScaling, 1, 0, 6), v(&D::saveReferencesOnce, 0, 1, 7),
      v(&D::decreaseEndFrameByOne, 0, 1, 8), v(&D::useGlobalAnimationRange, 0, 1, 9),
      v(&D::exportSkinning, 0, 1, 10)};
  std::size_t at = 8;  // file header
  for (Step& s : steps)
    if (s.since <= version) s.end = at += s.size;
  return steps;
}

// Every value read up to byte `readUpTo` of a version 10 file, every later one
// (and everything of a file shorter than its header) at its default.
void expectReadUpTo(const OptionsDialog& r, std::size_t readUpTo) {
  for (const Step& s : layout(10)) s.check(r, readUpTo >= 8 && s.end <= readUpTo);
}

Bytes patched(int version, std::size_t at, const Bytes& patch) {
  Bytes bytes = ztx_test::readBytes(cfgData(version));
  std::copy(patch.begin(), patch.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
  return bytes;
}
// An int value: tag 0x03, then the value.
Bytes intValue(std::int32_t value) {
  Bytes b(5, 0x03);
  std::memcpy(&b[1], &value, 4);
  return b;
}

std::vector<std::string> historyAfterSave(const std::vector<std::string>& history, const std::string& current) {
  TempDir dir;
  {
    OptionsDialog record(dir.path().string(), 30);
    record.texturePathHistory = history;
    record.texturePath = current;
    EXPECT_TRUE(record.saveOptions().ok());
  }
  return Loaded(dir.file("ZTExport.cfg")).record.texturePathHistory;
}

}  // namespace

TEST(OptionsFile, EveryVersionReadsExactlyItsValues) {
  for (int version = 1; version <= 10; ++version) {
    SCOPED_TRACE("version " + std::to_string(version));
    Loaded l(cfgData(version));
    EXPECT_TRUE(l.result);
    std::size_t size = 0;
    for (const Step& s : layout(version)) {
      s.check(l.record, s.end != SIZE_MAX);
      if (s.end != SIZE_MAX) size = s.end;
    }
    EXPECT_EQ(size, ztx_test::readBytes(cfgData(version)).size());
  }
}

TEST(OptionsFile, SavedBytesMatchTheCommittedVersionTenFile) {
  Loaded l(cfgData(10));
  l.record.configFilePath = l.dir.file("ZTExport.cfg");
  ASSERT_TRUE(l.record.saveOptions().ok());
  EXPECT_EQ(ztx_test::readBytes(l.dir.file("ZTExport.cfg")), ztx_test::readBytes(cfgData(10)));
}

TEST(OptionsFile, CreationReplacesTheRatesAndReloadingDoesNotDoubleTheHistory) {
  TempDir dir;
  std::filesystem::copy_file(cfgData(10), dir.file("ZTExport.cfg"));
  OptionsDialog record(dir.path().string(), 60);
  EXPECT_EQ(record.sampleRate, 60);
  EXPECT_EQ(record.sceneFrameRate, 60);
  EXPECT_EQ(record.rotationDelta, 0.25f);
  EXPECT_TRUE(record.loadOptions());
  EXPECT_EQ(record.texturePathHistory, (std::vector<std::string>{"tex/v10", "old"}));
}

// Saving removes the first entry byte-equal to the current path and puts the
// path in front; an empty path is written as ".", and the history has no limit.
TEST(OptionsFile, TexturePathHistory) {
  using H = std::vector<std::string>;
  H forty, fortyAfter{"new"};
  for (int i = 0; i < 40; ++i) forty.push_back("p" + std::to_string(i));
  fortyAfter.insert(fortyAfter.end(), forty.begin(), forty.end());
  const std::tuple<H, std::string, H> rows[] = {
      {{"X", "Y"}, "Z", {"Z", "X", "Y"}},
      {{"B", "A", "C", "A"}, "A", {"A", "B", "C", "A"}},
      {{"Maps", "maps/"}, "maps", {"maps", "Maps", "maps/"}},
      {{"X", ""}, "", {".", "X"}},
      {forty, "new", fortyAfter},
  };
  for (const auto& [history, current, saved] : rows) EXPECT_EQ(historyAfterSave(history, current), saved) << current;
}

TEST(OptionsFile, TruncatedAtEveryLengthKeepsDefaultsForUnreadValues) {
  const Bytes full = ztx_test::readBytes(cfgData(10));
  for (std::size_t length = 0; length < full.size(); ++length) {
    SCOPED_TRACE("length " + std::to_string(length));
    Loaded l(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_FALSE(l.result);
    expectReadUpTo(l.record, length);
  }
}

TEST(OptionsFile, DamagedFilesKeepWhatCameBeforeTheFault) {
  const std::size_t countAt = 8 + 20 * 5;  // header, version and 19 values
  const std::size_t historyEnd = countAt + 5 + 5 + 7 + 5 + 3;
  const std::tuple<const char*, int, std::size_t, Bytes, std::size_t> rows[] = {
      {"newer version", 11, 0, {}, 0},
      {"wrong header", 10, 0, {'X'}, 0},
      {"float where the animation flag belongs", 10, 8 + 2 * 5, {0x05}, 8 + 2 * 5},
      {"negative path count", 10, countAt, intValue(-1), countAt},
      {"huge path count: the ints after the paths are no strings", 10, countAt, intValue(0x7fffffff), historyEnd},
      {"string length past the end", 10, countAt + 5, {0x06, 0xa0, 0x86, 0x01, 0x00}, countAt + 5},
  };
  for (const auto& [what, version, at, patch, readUpTo] : rows) {
    SCOPED_TRACE(what);
    Loaded l(patched(version, at, patch));
    EXPECT_FALSE(l.result);
    expectReadUpTo(l.record, readUpTo);
  }
  // A stored interpolation method outside 0..2 is read as it stands.
  Loaded l(patched(10, historyEnd + 2 * 5, intValue(7)));
  EXPECT_TRUE(l.result);
  EXPECT_EQ(l.record.frameToFrameInterpolation, 7);
  EXPECT_EQ(l.record.exportSkinning, 0);
}

TEST(OptionsFile, FloatsOutsideTheSpinnersLimitsAreBroughtToThem) {
  const std::size_t rescaleFactorAt = 8 + 19 * 5;  // header, version and 18 values
  auto floatValue = [](float value) {
    Bytes b(5, 0x05);
    std::memcpy(&b[1], &value, 4);
    return b;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  // stored value -> what the record holds (NaN keeps the default)
  const std::pair<float, float> rows[] = {{nan, 1.0f}, {inf, 100.0f}, {-2.0f, 0.0f}, {2.5f, 2.5f}};
  for (const auto& [stored, held] : rows) {
    SCOPED_TRACE(stored);
    Loaded l(patched(10, rescaleFactorAt, floatValue(stored)));
    EXPECT_TRUE(l.result);
    EXPECT_EQ(l.record.rescaleFactor, held);
  }
  // The position delta, read after the path count, the two paths and retainHierarchies.
  Loaded p(patched(10, rescaleFactorAt + 5 + 5 + 12 + 8 + 5, floatValue(inf)));
  EXPECT_EQ(p.record.positionDelta, 100.0f);
}
