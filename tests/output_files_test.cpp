// Saving never loses a file: every way a save can go wrong leaves the old file
// whole and no temporary behind, and what must be kept (links, modes) is kept.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <filesystem>

#include "format/output_files.h"
#include "format/memory_file.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

T_MemoryFile fileHolding(int value) {
  T_MemoryFile f;
  f << value;
  return f;
}

int savedValue(const std::string& path) {
  T_MemoryFile in(path.c_str(), AM_Read);
  const int v = in.readInt();
  EXPECT_TRUE(in.atEnd());
  return v;
}

// Names in `dir` other than `expected`: a temporary left behind shows here.
std::vector<std::string> strayNames(const ztx_test::TempDir& dir, std::vector<std::string> expected) {
  std::vector<std::string> stray;
  for (const auto& e : fs::directory_iterator(dir.path())) {
    const std::string name = e.path().filename().string();
    if (std::find(expected.begin(), expected.end(), name) == expected.end()) stray.push_back(name);
  }
  return stray;
}

}  // namespace

// A folder or a hard-linked file in the target's place is refused through
// the export, which keeps the old pair (zt2export_hostile_test.cpp,
// AnOutputThatCannotBeSavedKeepsTheOldPair).
TEST(FileReplace, RefusedTargetsStayAsTheyWereWithTheReason) {
  struct Case {
    const char* what;
    std::function<std::string(const ztx_test::TempDir&)> prepare;  // returns the target
    const char* reason;
  };
  const Case cases[] = {
      {"missing directory", [](const auto& d) { return d.file("missing/out.zt2"); }, "No such file or directory"},
      {"FIFO", [](const auto& d) { ::mkfifo(d.file("pipe").c_str(), 0644); return d.file("pipe"); },
       "not a regular file"},
      {"device", [](const auto&) { return std::string("/dev/null"); }, "not a regular file"},
      {"symlink loop", [](const auto& d) { fs::create_symlink("loop", d.file("loop")); return d.file("loop"); },
       "Too many levels of symbolic links"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ztx_test::TempDir dir;
    const std::string target = c.prepare(dir);
    std::vector<std::string> before;
    for (const auto& e : fs::directory_iterator(dir.path())) before.push_back(e.path().filename().string());
    const T_MemoryFile f = fileHolding(7);
    testing::internal::CaptureStderr();
    const Result<void> saved = f.save(target.c_str());
    const std::string err = testing::internal::GetCapturedStderr();
    ASSERT_FALSE(saved.ok());
    EXPECT_NE(saved.error().message.find(c.reason), std::string::npos) << saved.error().message;
    EXPECT_EQ(err, "");  // the caller tells it, naming the file
    EXPECT_EQ(strayNames(dir, before), std::vector<std::string>{});
  }
}

TEST(FileReplace, SymlinkIsWrittenThroughAndStaysALink) {
  ztx_test::TempDir dir;
  fs::create_directory(dir.file("real"));
  ASSERT_TRUE(fileHolding(1).save(dir.file("real/ZTExport.cfg").c_str()).ok());
  fs::create_symlink("real/ZTExport.cfg", dir.file("ZTExport.cfg"));
  // A dangling link is written through as well: the file it names is created.
  fs::create_symlink("real/new.cfg", dir.file("dangling.cfg"));

  ASSERT_TRUE(fileHolding(2).save(dir.file("ZTExport.cfg").c_str()).ok());
  ASSERT_TRUE(fileHolding(3).save(dir.file("dangling.cfg").c_str()).ok());
  EXPECT_TRUE(fs::is_symlink(dir.file("ZTExport.cfg")));
  EXPECT_TRUE(fs::is_symlink(dir.file("dangling.cfg")));
  EXPECT_EQ(savedValue(dir.file("real/ZTExport.cfg")), 2);
  EXPECT_EQ(savedValue(dir.file("real/new.cfg")), 3);
  EXPECT_EQ(strayNames(dir, {"real", "ZTExport.cfg", "dangling.cfg"}), std::vector<std::string>{});
}

TEST(FileReplace, ModesFollowTheOldFileOrTheUmaskBesideTheUsersFilesWhateverTheNameLength) {
  ztx_test::TempDir dir;
  const std::string kept = dir.file("kept.zt2");
  ztx_test::writeText(kept, "old");
  fs::permissions(kept, fs::perms(0640));
  ASSERT_TRUE(fileHolding(1).save(kept.c_str()).ok());
  EXPECT_EQ(fs::status(kept).permissions(), fs::perms(0640));

  const mode_t mask = ::umask(0);
  ::umask(mask);
  const std::string fresh = dir.file("fresh.zt2");
  ASSERT_TRUE(fileHolding(1).save(fresh.c_str()).ok());
  EXPECT_EQ(static_cast<int>(fs::status(fresh).permissions()), 0666 & ~static_cast<int>(mask));

  // The user's own .part file beside the target, and names as long as the system takes.
  const std::string target = dir.file("scene.zt2");
  ztx_test::writeText(target + ".part", "the user's own");
  ASSERT_TRUE(fileHolding(1).save(target.c_str()).ok());
  EXPECT_EQ(ztx_test::readText(target + ".part"), "the user's own");

  for (std::size_t length : {251u, 255u}) {
    const std::string name = dir.file(std::string(length - 4, 'n') + ".zt2");
    EXPECT_TRUE(fileHolding(1).save(name.c_str()).ok()) << length;
    EXPECT_EQ(savedValue(name), 1);
  }
}

// What a run stages appears only with its commit, in one piece, and never
// over a file that appeared meanwhile; discarded, it leaves no trace, not
// even the directory it made.
TEST(FileStaging, CommitPutsEverythingInPlaceAndDiscardLeavesNothing) {
  ztx_test::TempDir dir;
  ztx_test::writeText(dir.file("scene.zt2"), "old scene");
  ztx_test::writeText(dir.file("scene.skd"), "old skin");
  fs::create_directory(dir.file("maps"));
  auto stageAll = [&](FileStaging& s) {
    const std::string scene = "new scene", skin = "new skin";
    ASSERT_TRUE(s.stageReplacement(dir.file("scene.skd"), {{skin.data(), skin.size()}}).ok());
    const Result<std::string> made = s.newFilesDirectory(dir.file("maps"));
    ASSERT_TRUE(made.ok()) << made.message();
    const std::string& maps = made.value();
    ztx_test::writeText(maps + "/a.png", "ours");
    ztx_test::writeText(maps + "/b.png", "ours");
    ASSERT_TRUE(s.stageReplacement(dir.file("scene.zt2"), {{scene.data(), scene.size()}}).ok());
  };
  {
    FileStaging s;
    stageAll(s);
    s.createdDirectory(dir.file("maps"));
    s.discard();
  }
  EXPECT_EQ(strayNames(dir, {"scene.zt2", "scene.skd"}), std::vector<std::string>{});
  EXPECT_EQ(ztx_test::readText(dir.file("scene.skd")), "old skin");

  fs::create_directory(dir.file("maps"));
  FileStaging s;
  stageAll(s);
  ztx_test::writeText(dir.file("maps/b.png"), "theirs");  // appeared after the staging
  EXPECT_EQ(ztx_test::readText(dir.file("scene.zt2")), "old scene");
  ASSERT_TRUE(s.commit(dir.file("scene.zt2")).ok());
  EXPECT_EQ(ztx_test::readText(dir.file("scene.zt2")), "new scene");
  EXPECT_EQ(ztx_test::readText(dir.file("scene.skd")), "new skin");
  EXPECT_EQ(ztx_test::readText(dir.file("maps/a.png")), "ours");
  EXPECT_EQ(ztx_test::readText(dir.file("maps/b.png")), "theirs");
  EXPECT_EQ(strayNames(dir, {"scene.zt2", "scene.skd", "maps"}), std::vector<std::string>{});
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.file("maps")), fs::directory_iterator()), 2);
}

// The flush before the commit opens the staged files by name: a link or a
// FIFO put among them fails the commit, without being followed or waited
// for, and nothing of the run is put in place.
TEST(FileStaging, ALinkOrFifoAmongTheStagedFilesFailsTheCommit) {
  const bool flushed = flushBeforeCommit();
  setFlushBeforeCommit(true);
  for (const char* planted : {"link", "fifo"}) {
    SCOPED_TRACE(planted);
    ztx_test::TempDir dir;
    ztx_test::writeText(dir.file("outside.txt"), "theirs");
    fs::create_directory(dir.file("maps"));
    FileStaging s;
    const Result<std::string> made = s.newFilesDirectory(dir.file("maps"));
    ASSERT_TRUE(made.ok()) << made.message();
    ztx_test::writeText(made.value() + "/a.png", "ours");
    if (std::string(planted) == "link") fs::create_symlink(dir.file("outside.txt"), made.value() + "/b.png");
    else ASSERT_EQ(::mkfifo((made.value() + "/b.png").c_str(), 0600), 0);
    EXPECT_FALSE(s.commit().ok());
    EXPECT_EQ(ztx_test::readText(dir.file("outside.txt")), "theirs");
    // What it did not make stays with the staging folder, which is not removed with it.
    EXPECT_FALSE(fs::exists(dir.file("maps/a.png")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(dir.file("maps/b.png"))));
  }
  setFlushBeforeCommit(flushed);
}

// A temporary that lives while a large file is written into it is removed by
// the discard only while its name is still the file the run made: what was
// put under that name meanwhile stays.
TEST(FileStaging, DiscardLeavesWhatWasPutUnderATemporarysName) {
  ztx_test::TempDir dir;
  FileStaging s;
  const Result<int> fd = s.stageForWriting(dir.file("big.zt2"));
  ASSERT_TRUE(fd.ok()) << fd.message();
  std::string temporary;
  for (const auto& e : fs::directory_iterator(dir.path())) temporary = e.path().filename().string();
  ASSERT_TRUE(temporary.ends_with(".ztmp")) << temporary;
  ztx_test::writeText(dir.file("theirs"), "not ours");
  fs::rename(dir.file("theirs"), dir.file(temporary));
  s.discard();
  EXPECT_EQ(ztx_test::readText(dir.file(temporary)), "not ours");
  EXPECT_FALSE(fs::exists(dir.file("big.zt2")));
}
