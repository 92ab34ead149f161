// zt2export --batch and --depfile over small generated trees: the same bytes
// as single exports whatever the number of jobs, stamps that skip what has
// not changed, failures reported without stopping the rest, an interrupted
// run, and the dependency file read by Ninja.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/batch_run.h"
#include "support/test_support.h"

namespace fs = std::filesystem;
using nlohmann::json;
using ztx_test::Background;
using ztx_test::batchArgs;
using ztx_test::manifestOf;
using ztx_test::statuses;
using ztx_test::readBytes;
using ztx_test::readText;
using ztx_test::runExport;
using ztx_test::TempDir;
using ztx_test::writeText;

namespace {

// The example and its textures, the same scene one folder down, the 3DS crate;
// with `bad`, a scene naming a missing image and a model cut short.
void makeTree(const fs::path& src, bool bad) {
  fs::create_directories(src / "sub");
  fs::copy(ztx_test::sourcePath("examples/textures"), src / "textures");
  fs::copy_file(ztx_test::sourcePath("examples/example.scene.json"), src / "example.scene.json");
  fs::copy_file(ztx_test::sourcePath("examples/crate.3ds"), src / "crate.3ds");
  const std::string example = readText(ztx_test::sourcePath("examples/example.scene.json"));
  std::string other = example;
  for (std::size_t at; (at = other.find("\"textures/")) != std::string::npos;) other.replace(at, 1, "\"../");
  writeText((src / "sub" / "other.scene.json").string(), other);
  writeText((src / "textures" / "notes.txt").string(), "not an input");
  if (!bad) return;
  std::string missing = example;
  missing.replace(missing.find("textures/skin.png"), 17, "textures/none.png");
  writeText((src / "sub" / "missing.json").string(), missing);
  writeText((src / "broken.3ds").string(), std::string("MM\x00\x10\x00\x00", 6) + "short");
}

// Every file under `dir` but the manifest, by relative path.
std::map<std::string, std::vector<unsigned char>> filesUnder(const fs::path& dir) {
  std::map<std::string, std::vector<unsigned char>> files;
  for (const auto& entry : fs::recursive_directory_iterator(dir))
    if (entry.is_regular_file() && entry.path().filename() != "ztexport-manifest.json")
      files[entry.path().lexically_relative(dir).string()] = readBytes(entry.path().string());
  return files;
}

}  // namespace

TEST(Batch, SerialAndParallelRunsWriteWhatSingleExportsWriteAndReportFailures) {
  TempDir dir;
  makeTree(dir.path() / "src", true);
  const fs::path config = dir.path() / "config";
  const auto serial = runExport(batchArgs(dir.path() / "src", dir.path() / "serial", config, {"-j", "1"}));
  const auto parallel = runExport(batchArgs(dir.path() / "src", dir.path() / "parallel", config, {"-j", "2"}));
  EXPECT_EQ(serial.exitCode, 1) << serial.err;
  EXPECT_EQ(parallel.exitCode, 1) << parallel.err;
  EXPECT_EQ(filesUnder(dir.path() / "serial"), filesUnder(dir.path() / "parallel"));

  const std::map<std::string, std::string> expected = {{"broken.3ds", "failed"},
                                                       {"crate.3ds", "exported"},
                                                       {"example.scene.json", "exported"},
                                                       {"sub/missing.json", "cancelled"},
                                                       {"sub/other.scene.json", "exported"}};
  EXPECT_EQ(statuses(dir.path() / "parallel"), expected);
  const json manifest = manifestOf(dir.path() / "parallel");
  EXPECT_EQ(manifest["exitStatus"], 1);
  EXPECT_EQ(manifest["counts"]["exported"], 3);
  for (const json& f : manifest["files"]) {
    const std::string messages = f["messages"].dump();
    if (f["input"] == "broken.3ds") {
      EXPECT_NE(messages.find("broken.3ds: cut short"), std::string::npos) << messages;
    }
    if (f["input"] == "sub/missing.json") {
      EXPECT_NE(messages.find("ERROR: Couldn't open texture"), std::string::npos) << messages;
    }
    if (f["input"] == "crate.3ds") {
      EXPECT_EQ(f["outputs"], json({"cloth.png", "crate.skd", "crate.zt2"}));
      EXPECT_EQ(f["bytes"].get<std::uint64_t>(), fs::file_size(dir.path() / "parallel" / "crate.zt2") +
                                                      fs::file_size(dir.path() / "parallel" / "crate.skd") +
                                                      fs::file_size(dir.path() / "parallel" / "cloth.png"));
    }
  }
  EXPECT_FALSE(fs::exists(dir.path() / "parallel" / "sub" / "missing.zt2"));
  EXPECT_FALSE(fs::exists(dir.path() / "parallel" / "broken.zt2"));

  // Each file alone, into a folder of its own, gives the same bytes.
  for (const auto& [input, output] : std::vector<std::pair<std::string, std::string>>{
           {"example.scene.json", "example"}, {"sub/other.scene.json", "sub/other"}, {"crate.3ds", "crate"}}) {
    const fs::path alone = dir.path() / "alone" / output;
    fs::create_directories(alone.parent_path());
    const auto r = runExport({(dir.path() / "src" / input).string(), "-o", alone.string() + ".zt2", "--config-dir",
                              config.string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    for (const char* ext : {".zt2", ".skd"})
      EXPECT_EQ(readBytes(alone.string() + ext), readBytes((dir.path() / "parallel" / output).string() + ext))
          << output << ext;
  }

  // Command lines that cannot run: status 2, nothing written.
  for (const auto& [args, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--batch", (dir.path() / "src").string()}, "needs an output directory"},
           {batchArgs(dir.path() / "src", dir.path() / "bad", config, {"--set", "noSuchField=1"}), "noSuchField"},
           {batchArgs(dir.path() / "src", dir.path() / "bad", config, {"--timeout", "0"}), "--timeout"},
           {batchArgs(dir.path() / "none", dir.path() / "bad", config), "not a directory"}}) {
    const auto r = runExport(args);
    EXPECT_EQ(r.exitCode, 2) << message;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fs::exists(dir.path() / "bad"));
}

TEST(Batch, ASecondRunExportsNothingAndATouchedTextureReExportsOnlyItsUsers) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  makeTree(src, false);
  ASSERT_EQ(runExport(batchArgs(src, out, config)).exitCode, 0);
  const auto before = filesUnder(out);

  const auto second = runExport(batchArgs(src, out, config));
  EXPECT_EQ(second.exitCode, 0) << second.err;
  for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "up to date") << input;
  EXPECT_EQ(filesUnder(out), before);

  // wave2.png is a frame of the example's image list, which the crate does not use.
  std::vector<unsigned char> wave = readBytes((src / "textures" / "wave2.png").string());
  wave.push_back(0);
  ztx_test::writeBytes((src / "textures" / "wave2.png").string(), wave);
  struct stat clothBefore {}, clothAfter {};
  ASSERT_EQ(::stat((out / "cloth.png").string().c_str(), &clothBefore), 0);
  ASSERT_EQ(runExport(batchArgs(src, out, config)).exitCode, 0);
  // The changed image's copy is replaced; the others, with their image's bytes, are not rewritten.
  ASSERT_EQ(::stat((out / "cloth.png").string().c_str(), &clothAfter), 0);
  EXPECT_EQ(clothAfter.st_ino, clothBefore.st_ino);
  EXPECT_EQ(clothAfter.st_mtim.tv_nsec, clothBefore.st_mtim.tv_nsec);
  const std::map<std::string, std::string> expected = {
      {"crate.3ds", "up to date"}, {"example.scene.json", "exported"}, {"sub/other.scene.json", "exported"}};
  EXPECT_EQ(statuses(out), expected);
  EXPECT_EQ(readBytes((out / "wave2.png").string()), wave);
  EXPECT_EQ(readBytes((out / "sub" / "wave2.png").string()), wave);

  // Other options make every output stale; --force redoes what is current.
  EXPECT_EQ(runExport(batchArgs(src, out, config, {"--set", "exportAnimation=0"})).exitCode, 0);
  for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "exported") << input;
  EXPECT_EQ(runExport(batchArgs(src, out, config, {"--set", "exportAnimation=0", "--force"})).exitCode, 0);
  for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "exported") << input;
}

// A model whose export outlasts any test: ASCII PLY that declares thirty
// million vertices and holds two, which the import library searches for
// (about a second per million) until the reader's own limit.
void addHangingScene(const fs::path& src, const std::string& name) {
  writeText((src / name).string(),
            "ply\nformat ascii 1.0\nelement vertex 30000000\nproperty float32 x\nproperty float32 y\n"
            "property float32 z\nelement face 1\nproperty list uint8 int32 vertex_index\nend_header\n"
            "0 0 0\n0 0 1\n");
}

TEST(Batch, AnExportPastItsTimeLimitIsStoppedAndReported) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out";
  fs::create_directories(src / "textures");
  addHangingScene(src, "hang.ply");
  const auto r = runExport(batchArgs(src, out, dir.path() / "config", {"--timeout", "1"}));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_EQ(statuses(out), (std::map<std::string, std::string>{{"hang.ply", "timed out"}}));
  EXPECT_NE(r.err.find("hang.ply: timed out"), std::string::npos) << r.err;
  const json manifest = manifestOf(out);
  EXPECT_EQ(manifest["files"][0]["messages"], json({"the export took more than 1 s and was stopped"}));
  // The manifest and the batch lock alone.
  EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 2);
  EXPECT_TRUE(fs::exists(out / ".ztexport-batch.lock"));
}

TEST(Batch, AnInterruptedRunLeavesWholeFilesAndAManifest) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  makeTree(src, false);
  // The hanging scene comes first and holds one of the two places to the end,
  // so the run is still going whenever the signal comes, in the middle of
  // whichever export the other place has reached.
  addHangingScene(src, "a-hang.ply");
  for (int i = 0; i < 40; ++i)
    fs::copy_file(src / "example.scene.json", src / ("copy" + std::to_string(i) + ".scene.json"));
  const fs::path reference = dir.path() / "reference";
  fs::create_directories(reference);
  ASSERT_EQ(runExport({(src / "example.scene.json").string(), "-o", (reference / "example.zt2").string(),
                       "--config-dir", config.string()})
                .exitCode,
            0);

  Background run(batchArgs(src, out, config, {"-j", "2"}));
  ASSERT_GT(run.pid, 0);
  // The run stamps what finished at its flush every five seconds, long before
  // the hanging export ends: once the first copy is stamped, the signal
  // comes amid later exports.
  const fs::path first = out / "copy0.zt2.stamp";
  for (int i = 0; i < 20000 && !fs::exists(first); ++i) std::this_thread::sleep_for(std::chrono::microseconds(500));
  ::kill(run.pid, SIGINT);
  EXPECT_EQ(run.finish(), 128 + SIGINT);

  const json manifest = manifestOf(out);
  EXPECT_TRUE(manifest["interrupted"].get<bool>());
  EXPECT_EQ(manifest["exitStatus"], 130);
  ASSERT_EQ(manifest["files"].size(), 44u);
  EXPECT_EQ(manifest["files"][0]["input"], "a-hang.ply");
  EXPECT_EQ(manifest["files"][0]["status"], "interrupted");
  // What is there is whole: every scene file stamped, each one the same as
  // the example's. An interrupted export left nothing, or (killed just after
  // its save) whole files without a stamp, which a later run redoes.
  std::size_t exported = 0;
  for (const json& f : manifest["files"]) {
    const fs::path zt2 = out / fs::path(f["input"].get<std::string>()).replace_extension("").replace_extension(".zt2");
    if (f["status"] == "exported") {
      ++exported;
      EXPECT_TRUE(fs::exists(zt2.string() + ".stamp")) << zt2;
      if (f["input"].get<std::string>().rfind("copy", 0) == 0) {
        EXPECT_EQ(readBytes(zt2.string()), readBytes((reference / "example.zt2").string())) << zt2;
      }
    } else {
      EXPECT_EQ(f["status"], "interrupted");
      EXPECT_FALSE(fs::exists(zt2.string() + ".stamp")) << zt2;
      if (f["input"].get<std::string>().rfind("copy", 0) != 0) {
        EXPECT_FALSE(fs::exists(zt2)) << zt2;
      } else if (fs::exists(zt2)) {
        EXPECT_EQ(readBytes(zt2.string()), readBytes((reference / "example.zt2").string())) << zt2;
      }
    }
  }
  EXPECT_EQ(manifest["counts"]["exported"].get<std::size_t>(), exported);
  // Temporaries and work directories are the only names that start with a
  // dot, and none is left; the batch lock stays for the next run.
  for (const auto& entry : fs::recursive_directory_iterator(out))
    if (entry.path() != out / ".ztexport-batch.lock") {
      EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
    }
}

TEST(Batch, TheDependencyFileNamesOutputsAndEveryFileReadAndDrivesNinja) {
  TempDir dir;
  // A space in every path, which make and Ninja need escaped.
  const fs::path root = dir.path() / "my scenes";
  makeTree(root / "src", false);
  const fs::path config = root / "config", out = root / "out";
  fs::create_directories(out);
  ASSERT_EQ(runExport({(root / "src" / "crate.3ds").string(), "-o", (out / "crate.zt2").string(), "--config-dir",
                       config.string(), "--save-options"})
                .exitCode,
            0);
  writeText((config / "ZTExportAdditional.cfg").string(), "");
  const auto r = runExport({(root / "src" / "crate.3ds").string(), "-o", (out / "crate.zt2").string(), "--config-dir",
                            config.string(), "--depfile", (out / "crate.d").string()});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto escaped = [](const fs::path& p) {
    std::string s = p.string();
    for (std::size_t at = 0; (at = s.find(' ', at)) != std::string::npos; at += 2) s.insert(at, "\\");
    return s;
  };
  EXPECT_EQ(readText((out / "crate.d").string()),
            escaped(out / "crate.zt2") + " " + escaped(out / "crate.skd") + " " + escaped(out / "cloth.png") +
                ": \\\n  " +
                escaped(config / "ZTExport.cfg") + " \\\n  " + escaped(config / "ZTExportAdditional.cfg") +
                " \\\n  " + escaped(root / "src" / "crate.3ds") + " \\\n  " +
                escaped(root / "src" / "textures" / "cloth.png") + "\n");

  // A folder converted by Ninja: touching one image rebuilds its users only.
  const std::string ninja = "/usr/bin/ninja";
  if (!fs::exists(ninja)) GTEST_SKIP() << "ninja is not installed";
  writeText((root / "build.ninja").string(),
            "rule zt2\n"
            "  command = " ZTX_ZT2EXPORT " $in -o $out --config-dir config --depfile $out.d --quiet\n"
            "  depfile = $out.d\n"
            "  deps = gcc\n"
            "build out/example.zt2: zt2 src/example.scene.json\n"
            "build out/crate.zt2: zt2 src/crate.3ds\n");
  fs::remove(out / "crate.zt2");
  const auto first = ztx_test::run(ninja, {"-C", root.string()});
  ASSERT_EQ(first.exitCode, 0) << first.out << first.err;
  EXPECT_NE(first.out.find("[2/2]"), std::string::npos) << first.out;
  EXPECT_NE(ztx_test::run(ninja, {"-C", root.string()}).out.find("no work to do"), std::string::npos);
  std::vector<unsigned char> skin = readBytes((root / "src" / "textures" / "skin.png").string());
  skin.push_back(0);
  ztx_test::writeBytes((root / "src" / "textures" / "skin.png").string(), skin);
  const auto again = ztx_test::run(ninja, {"-C", root.string(), "-d", "explain"});
  EXPECT_NE(again.out.find("[1/1]"), std::string::npos) << again.out << again.err;
  EXPECT_NE(again.err.find("skin.png"), std::string::npos) << again.err;
  EXPECT_EQ(again.out.find("crate"), std::string::npos) << again.out;
}
