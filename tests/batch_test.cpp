// zt2export --batch and --depfile over small generated trees: the same bytes
// as single exports whatever the number of jobs, stamps that skip what has
// not changed and vouch for the bytes of every output and of what the export
// read, failures reported without stopping the rest, an interrupted run, one
// batch at a time per output directory, no file skipped or deleted without a
// word, texture copies of one name from different images refused, every
// per-export option handed on, a dry run that writes nothing, progress as JSON
// lines, and the dependency file, whose rule the batch reads back whatever the
// paths hold.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "driver/depfile.h"
#include "support/test_support.h"

namespace fs = std::filesystem;
using nlohmann::json;
using ztx_test::exportArgs;
using ztx_test::readBytes;
using ztx_test::readText;
using ztx_test::runExport;
using ztx_test::TempDir;
using ztx_test::writeText;

namespace {

std::vector<std::string> batchArgs(const fs::path& src, const fs::path& out, const fs::path& config,
                                   std::vector<std::string> more = {}) {
  std::vector<std::string> args = {"--batch", src.string(), "-o", out.string(), "--config-dir", config.string()};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

json manifestOf(const fs::path& out) { return json::parse(readText((out / "ztexport-manifest.json").string())); }

// Each input's status in the output folder's manifest.
std::map<std::string, std::string> statuses(const fs::path& out) {
  std::map<std::string, std::string> s;
  const json manifest = manifestOf(out);
  for (const json& f : manifest["files"]) s[f["input"]] = f["status"];
  return s;
}

// zt2export started in the background with `args`, its standard error read
// through a pipe.
struct Background {
  pid_t pid = -1;
  int err = -1;
  std::string seen;

  explicit Background(std::vector<std::string> args) {
    args.insert(args.begin(), ZTX_ZT2EXPORT);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    int fds[2];
    if (::pipe(fds) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    err = fds[0];
  }
  // Reads standard error until `text` shows (or it ends); true when it showed.
  bool awaitText(const std::string& text) {
    char block[512];
    while (seen.find(text) == std::string::npos) {
      const ssize_t n = ::read(err, block, sizeof block);
      if (n <= 0) return false;
      seen.append(block, static_cast<std::size_t>(n));
    }
    return true;
  }
  // Reads to the end and waits: the exit status, or -1 when it did not exit.
  int finish() {
    awaitText("\x01");  // to the end
    ::close(err);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

// The example and its textures and the 3DS crate; with `sub`, the same scene
// one folder down and a file that is no input; with `bad`, a scene naming a
// missing image and a model cut short.
void makeTree(const fs::path& src, bool sub = false, bool bad = false) {
  fs::create_directories(src);
  fs::copy(ztx_test::sourcePath("examples/textures"), src / "textures");
  fs::copy_file(ztx_test::sourcePath("examples/example.scene.json"), src / "example.scene.json");
  fs::copy_file(ztx_test::sourcePath("examples/crate.3ds"), src / "crate.3ds");
  if (!sub) return;
  fs::create_directories(src / "sub");
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

json recordOf(const fs::path& out, const std::string& input) {
  const json manifest = manifestOf(out);
  for (const json& f : manifest["files"])
    if (f["input"] == input) return f;
  return json();
}

// Every file and folder under `dir` with its bytes and modification time.
std::map<std::string, std::string> snapshot(const fs::path& dir) {
  std::map<std::string, std::string> files;
  if (!fs::exists(dir)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    struct stat st {};
    ::lstat(entry.path().c_str(), &st);
    std::string state = std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
    if (entry.is_regular_file()) state += ":" + readText(entry.path().string());
    files[entry.path().lexically_relative(dir).string()] = state;
  }
  return files;
}

// An OBJ triangle whose one material maps `image` (relative to the model).
void writeObj(const fs::path& path, const std::string& image) {
  const std::string stem = path.stem().string();
  writeText(path.string(), "mtllib " + stem + ".mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\n"
                           "usemtl wood\nf 1/1 2/2 3/3\n");
  writeText((path.parent_path() / (stem + ".mtl")).string(), "newmtl wood\nKd 1 1 1\nmap_Kd " + image + "\n");
}

// A script that runs zt2export with its arguments, for --exporter.
fs::path writeScript(const fs::path& path, const std::string& body) {
  writeText(path.string(), "#!/bin/sh\n" + body);
  fs::permissions(path, fs::perms::owner_all);
  return path;
}

TEST(DependencyRule, EveryPathComesBackAsWritten) {
  const std::vector<std::string> paths = {
      "out/plain.zt2",       "with space/a b.png", "hash#mark.tga",    "dollar$sign.bmp", "trailing\\",
      "back\\slash\\ space", "two\\\\ before.png", "colon:inside.jpg", "ünïcode/名前.png", "-leading-dash"};
  for (std::size_t split = 0; split <= paths.size(); ++split) {
    const std::vector<std::string> targets(paths.begin(), paths.begin() + split);
    const std::vector<std::string> prerequisites(paths.begin() + split, paths.end());
    if (targets.empty()) continue;
    const zt2export::ExportFiles read = zt2export::parseDependencyRule(zt2export::dependencyRule(targets, prerequisites));
    EXPECT_EQ(read.targets, targets) << "split at " << split;
    EXPECT_EQ(read.prerequisites, prerequisites) << "split at " << split;
  }
}

}  // namespace

TEST(Batch, SerialAndParallelRunsWriteWhatSingleExportsWriteAndReportFailures) {
  TempDir dir;
  makeTree(dir.path() / "src", true, true);
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
    // A scene's own messages are the single export's (tests/python/test_front_ends.py).
    if (f["input"] == "crate.3ds") {
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
    const auto r = runExport(exportArgs(dir, (dir.path() / "src" / input).string(), alone.string() + ".zt2"));
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
           {batchArgs(dir.path() / "none", dir.path() / "bad", config), "not a directory"},
           // Every per-export option is checked before anything runs: one stands for all
           // (their messages for one export: zt2export_tool_test.cpp, zt2export_hostile_import_test.cpp).
           {batchArgs(dir.path() / "src", dir.path() / "bad", config, {"--texture-names", "short"}),
            "--texture-names short: expected keep or unique"}}) {
    const auto r = runExport(args);
    EXPECT_EQ(r.exitCode, 2) << message;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fs::exists(dir.path() / "bad"));
}

TEST(Batch, ASecondRunExportsNothingAndATouchedTextureReExportsOnlyItsUsers) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  makeTree(src, true);
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

  // --force redoes what is current (other options making every output stale:
  // EveryPerExportOptionReachesTheExportsAndTheStamps).
  EXPECT_EQ(runExport(batchArgs(src, out, config, {"--force"})).exitCode, 0);
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
  makeTree(src, true);
  // The hanging scene comes first and holds one of the two places to the end,
  // so the run is still going whenever the signal comes, in the middle of
  // whichever export the other place has reached.
  addHangingScene(src, "a-hang.ply");
  for (int i = 0; i < 40; ++i)
    fs::copy_file(src / "example.scene.json", src / ("copy" + std::to_string(i) + ".scene.json"));
  const fs::path reference = dir.path() / "reference";
  fs::create_directories(reference);
  ASSERT_EQ(runExport(exportArgs(dir, (src / "example.scene.json").string(), (reference / "example.zt2").string())).exitCode,
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

// The rule in make's syntax, spaces escaped; the batch reads it back to stamp
// what each export read, so a touched image re-exporting its users alone
// (ASecondRunExportsNothingAndATouchedTextureReExportsOnlyItsUsers) shows its
// prerequisites whole, and DependencyRule.EveryPathComesBackAsWritten its
// escaping of any path.
TEST(Batch, TheDependencyFileNamesOutputsAndEveryFileRead) {
  TempDir dir;
  // A space in every path, which make and Ninja need escaped.
  const fs::path root = dir.path() / "my scenes";
  makeTree(root / "src");
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

}

TEST(BatchIntegrity, OneBatchAtATimeAndStampsVouchForEveryOutput) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  makeTree(src);
  ASSERT_EQ(runExport(batchArgs(src, out, config)).exitCode, 0);
  const std::string manifest = readText((out / "ztexport-manifest.json").string());

  {
    // Another batch at work (its lock held here): refused, nothing written;
    // with --wait, it runs once the other ends.
    const int other = ::open((out / ".ztexport-batch.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    const auto refused = runExport(batchArgs(src, out, config, {"--set", "exportAnimation=0"}));
    EXPECT_EQ(refused.exitCode, 2) << refused.err;
    EXPECT_NE(refused.err.find(out.string() + ": another batch is exporting into this directory"), std::string::npos)
        << refused.err;
    EXPECT_EQ(readText((out / "ztexport-manifest.json").string()), manifest);
    for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "exported") << input;

    Background waiting(batchArgs(src, out, config, {"--wait"}));
    ASSERT_TRUE(waiting.awaitText("waiting for it to end")) << waiting.seen;
    ::close(other);
    EXPECT_EQ(waiting.finish(), 0) << waiting.seen;
    for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "up to date") << input;
  }

  // An output changed under its stamp (by hand, or by a run that was not
  // this one) is exported again, with the files of its inputs alone: the
  // example names the crate's image too.
  for (const auto& [changed, example] : std::vector<std::pair<std::string, std::string>>{
           {"crate.skd", "up to date"}, {"cloth.png", "exported"}}) {
    const std::vector<unsigned char> good = readBytes((out / changed).string());
    std::vector<unsigned char> bad = good;
    bad.push_back(0);
    ztx_test::writeBytes((out / changed).string(), bad);
    const auto r = runExport(batchArgs(src, out, config));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(statuses(out), (std::map<std::string, std::string>{{"crate.3ds", "exported"},
                                                                 {"example.scene.json", example}}))
        << changed;
    EXPECT_EQ(readBytes((out / changed).string()), good) << changed;
  }
}

TEST(BatchIntegrity, ASourceEditedDuringItsExportIsExportedAgain) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  fs::create_directories(src);
  fs::copy(ztx_test::sourcePath("examples/textures"), src / "textures");
  for (const char* name : {"a", "b", "c"})
    fs::copy_file(ztx_test::sourcePath("examples/example.scene.json"), src / (std::string(name) + ".scene.json"));
  // The export of a.scene.json ends with one of its images edited, that of
  // b.scene.json with its own scene file edited: after the export read
  // them, before the batch hashed them. c.scene.json, exported after both
  // (-j 1, in name order), reads the edited image.
  const fs::path exporter = writeScript(dir.path() / "edit-during-export.sh",
                                        "\"" ZTX_ZT2EXPORT "\" \"$@\"\nstatus=$?\n"
                                        "case \"$1\" in\n"
                                        "  */a.scene.json) printf x >> \"" + (src / "textures" / "skin.png").string() +
                                            "\" ;;\n"
                                        "  */b.scene.json) printf ' ' >> \"$1\" ;;\n"
                                        "esac\nexit $status\n");
  const auto first = runExport(batchArgs(src, out, config, {"-j", "1", "--exporter", exporter.string()}));
  EXPECT_EQ(first.exitCode, 0) << first.err;
  for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "exported") << input;
  EXPECT_NE(recordOf(out, "a.scene.json")["messages"].dump().find("skin.png changed while it was exported"),
            std::string::npos);
  EXPECT_NE(recordOf(out, "b.scene.json")["messages"].dump().find("b.scene.json changed while it was exported"),
            std::string::npos);

  const auto second = runExport(batchArgs(src, out, config, {"-j", "1"}));
  EXPECT_EQ(second.exitCode, 0) << second.err;
  EXPECT_EQ(statuses(out), (std::map<std::string, std::string>{{"a.scene.json", "exported"},
                                                               {"b.scene.json", "exported"},
                                                               {"c.scene.json", "up to date"}}));
  EXPECT_EQ(runExport(batchArgs(src, out, config, {"-j", "1"})).exitCode, 0);
  for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "up to date") << input;
}

TEST(BatchIntegrity, NoSourceIsSkippedWithoutAWordAndNoFolderNotOursIsRemoved) {
  TempDir dir;
  const fs::path src = dir.path() / "src", config = dir.path() / "config";
  makeTree(src);

  // An output directory inside the source that holds sources: refused, nothing written.
  fs::create_directories(src / "sub");
  fs::copy_file(src / "crate.3ds", src / "sub" / "box.3ds");
  const auto refused = runExport(batchArgs(src, src / "sub", config));
  EXPECT_EQ(refused.exitCode, 2) << refused.err;
  EXPECT_NE(refused.err.find("the output directory lies inside the source directory"), std::string::npos)
      << refused.err;
  EXPECT_NE(refused.err.find("sub/box.3ds"), std::string::npos) << refused.err;
  EXPECT_EQ(std::distance(fs::directory_iterator(src / "sub"), fs::directory_iterator()), 1);

  // One that holds none is skipped, and said so; its own outputs are no sources the next time.
  fs::remove(src / "sub" / "box.3ds");
  for (int run = 0; run < 2; ++run) {
    const auto r = runExport(batchArgs(src, src / "sub", config));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("sub skipped (the output directory)"), std::string::npos) << r.err;
    const json manifest = manifestOf(src / "sub");
    EXPECT_EQ(manifest["skipped"], json::parse(R"([{"folder": "sub", "reason": "the output directory"}])"));
    EXPECT_EQ(manifest["files"].size(), 2u);
  }

  // Folders of the work directories' names that a batch did not make stay
  // with all they hold; one a killed batch left is removed.
  const fs::path out = dir.path() / "out";
  const std::vector<std::pair<std::string, bool>> folders = {{".ztexport-work.99999", false},
                                                             {".ztexport-work.abcdefABCDEF", false},
                                                             {".ztexport-work.ghijklGHIJKL", true}};
  for (const auto& [name, ours] : folders) {
    fs::create_directories(out / name);
    writeText((out / name / "notes.txt").string(), "mine");
    if (ours) writeText((out / name / ".ztexport-work-marker").string(), "");
  }
  ASSERT_EQ(runExport(batchArgs(src, out, config)).exitCode, 0);
  for (const auto& [name, ours] : folders) {
    EXPECT_EQ(fs::exists(out / name), !ours) << name;
    if (!ours) {
      EXPECT_EQ(readText((out / name / "notes.txt").string()), "mine") << name;
    }
  }
  for (const auto& entry : fs::directory_iterator(out)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind(".ztexport-work.", 0) != 0) continue;
    EXPECT_TRUE(std::any_of(folders.begin(), folders.end(), [&](const auto& f) { return f.first == name; })) << name;
  }
}

TEST(BatchIntegrity, TextureCopiesOfOneNameFromDifferentImagesFailBothFiles) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  fs::create_directories(src / "t1");
  fs::create_directories(src / "t2");
  fs::copy_file(ztx_test::sourcePath("examples/textures/cloth.png"), src / "t1" / "wood.png");
  fs::copy_file(ztx_test::sourcePath("examples/textures/skin.png"), src / "t2" / "wood.png");
  writeObj(src / "one.obj", "t1/wood.png");
  writeObj(src / "two.obj", "t2/wood.png");

  // one.obj alone is fine; two.obj would then replace the copy one.obj's
  // scene file names. Together, in one run or two, both fail, every time.
  const auto alone = runExport(batchArgs(src, out, config, {"--exclude", "two.obj"}));
  ASSERT_EQ(alone.exitCode, 0) << alone.err;
  for (int run = 0; run < 3; ++run) {
    const auto r = runExport(batchArgs(src, out, config, {"-j", run == 2 ? "2" : "1"}));
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_EQ(statuses(out), (std::map<std::string, std::string>{{"one.obj", "failed"}, {"two.obj", "failed"}}))
        << run;
    for (const char* input : {"one.obj", "two.obj"}) {
      const std::string messages = recordOf(out, input)["messages"].dump();
      for (const char* named : {"one.obj", "two.obj", "t1/wood.png", "t2/wood.png", "ERROR: wood.png"})
        EXPECT_NE(messages.find(named), std::string::npos) << input << " " << named << " " << messages;
      EXPECT_FALSE(fs::exists(out / (fs::path(input).stem().string() + ".zt2.stamp"))) << input;
    }
    EXPECT_NE(r.err.find("ERROR: wood.png"), std::string::npos) << r.err;
  }
}

TEST(BatchIntegrity, EveryPerExportOptionReachesTheExportsAndTheStamps) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  const fs::path maps = dir.path() / "maps";
  fs::create_directories(src);
  fs::create_directories(maps);
  fs::copy_file(ztx_test::sourcePath("examples/textures/cloth.png"), maps / "wood.png");
  writeObj(src / "m.obj", "wood.png");  // found only through --texture-path

  // Each run's options against the last: a change exports again, the same options do not.
  const std::vector<std::pair<std::vector<std::string>, std::string>> runs = {
      {{}, "cancelled"},
      {{"--texture-path", maps.string()}, "exported"},
      {{"--texture-path", maps.string()}, "up to date"},
      {{"--texture-path", maps.string(), "--missing-textures", "drop"}, "exported"},
      {{"--texture-path", maps.string(), "--missing-textures", "drop", "--memory-limit", "2048"}, "exported"},
      {{"--texture-path", maps.string(), "--missing-textures", "drop", "--memory-limit", "2048",
        "--copy-textures-outside"},
       "exported"},
      {{"--texture-path", maps.string(), "--missing-textures", "drop", "--memory-limit", "2048",
        "--copy-textures-outside"},
       "up to date"},
  };
  for (const auto& [options, expected] : runs) {
    const auto r = runExport(batchArgs(src, out, config, options));
    EXPECT_EQ(r.exitCode, expected == "cancelled" ? 1 : 0) << r.err;
    EXPECT_EQ(statuses(out)["m.obj"], expected) << testing::PrintToString(options) << r.err;
    const json manifest = manifestOf(out);
    for (const std::string& option : options)
      EXPECT_NE(manifest["options"].dump().find(option), std::string::npos) << option;
  }

  // --texture-names goes to every export as given (the wrapper records it
  // and hands the rest on), and into the stamps.
  const fs::path log = dir.path() / "arguments.log";
  const fs::path exporter = writeScript(dir.path() / "log-arguments.sh",
                                        "echo \"$@\" >> \"" + log.string() + "\"\n"
                                        "skip=\nfor a; do shift\n"
                                        "  if [ -n \"$skip\" ]; then skip=; continue; fi\n"
                                        "  if [ \"$a\" = --texture-names ]; then skip=1; continue; fi\n"
                                        "  set -- \"$@\" \"$a\"\ndone\n"
                                        "exec \"" ZTX_ZT2EXPORT "\" \"$@\"\n");
  const auto named = runExport(batchArgs(src, out, config,
                                         {"--texture-path", maps.string(), "--texture-names", "unique", "--exporter",
                                          exporter.string()}));
  EXPECT_EQ(named.exitCode, 0) << named.err;
  EXPECT_EQ(statuses(out)["m.obj"], "exported");
  EXPECT_NE(readText(log.string()).find("--texture-names unique"), std::string::npos) << readText(log.string());
  EXPECT_NE(readText((out / "m.zt2.stamp").string()).find("\"--texture-names\""), std::string::npos);
}

TEST(BatchIntegrity, ADryRunSaysWhatAndWhyAndWritesNothingAndJsonLinesReportEachFile) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  makeTree(src);
  const auto fresh = runExport(batchArgs(src, out, config, {"--dry-run"}));
  EXPECT_EQ(fresh.exitCode, 0) << fresh.err;
  EXPECT_EQ(fresh.out, "crate.3ds: would export (new)\nexample.scene.json: would export (new)\n");
  EXPECT_FALSE(fs::exists(out));

  // Progress as one JSON object per file.
  const auto real = runExport(batchArgs(src, out, config, {"--json"}));
  ASSERT_EQ(real.exitCode, 0) << real.err;
  std::istringstream lines(real.out);
  std::map<std::string, json> byInput;
  for (std::string line; std::getline(lines, line);) {
    const json record = json::parse(line);
    byInput[record["input"]] = record;
  }
  ASSERT_EQ(byInput.size(), 2u) << real.out;
  EXPECT_EQ(byInput["crate.3ds"]["status"], "exported");
  EXPECT_EQ(byInput["crate.3ds"]["outputs"], json({"cloth.png", "crate.skd", "crate.zt2"}));

  // Each reason to export, and nothing written.
  std::vector<unsigned char> skin = readBytes((src / "textures" / "skin.png").string());
  skin.push_back(0);
  ztx_test::writeBytes((src / "textures" / "skin.png").string(), skin);
  fs::remove(out / "crate.skd");
  const auto before = snapshot(out);
  const auto changed = runExport(batchArgs(src, out, config, {"--dry-run"}));
  EXPECT_EQ(changed.exitCode, 0) << changed.err;
  EXPECT_EQ(changed.out, "crate.3ds: would export (crate.skd is missing)\nexample.scene.json: would export (" +
                             (src / "textures" / "skin.png").string() + " changed)\n");
  const auto options = runExport(batchArgs(src, out, config, {"--dry-run", "--set", "exportAnimation=0"}));
  EXPECT_EQ(options.out, "crate.3ds: would export (the options changed)\n"
                         "example.scene.json: would export (the options changed)\n");
  const auto json = runExport(batchArgs(src, out, config, {"--dry-run", "--json"}));
  EXPECT_NE(json.out.find(R"({"input":"crate.3ds","status":"would export","output":"crate.zt2","reason":"crate.skd is missing"})"),
            std::string::npos)
      << json.out;
  EXPECT_EQ(snapshot(out), before);
}

TEST(BatchIntegrity, ModelsOfOneNameEachExportAndOnlyModelXmlIsAnInput) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out", config = dir.path() / "config";
  fs::create_directories(src / "maps");
  fs::copy_file(ztx_test::sourcePath("examples/crate.3ds"), src / "crate.3ds");
  fs::copy(ztx_test::sourcePath("examples/textures"), src / "textures");
  fs::copy_file(ztx_test::sourcePath("examples/textures/skin.png"), src / "maps" / "wood.png");
  writeObj(src / "crate.obj", "maps/wood.png");
  writeText((src / "notes.xml").string(), "<?xml version=\"1.0\"?>\n<notes><note>not a model</note></notes>\n");
  // A model in XML (XGL, whose root is WORLD) behind a declaration and a comment.
  writeText((src / "triangle.xml").string(),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!-- one triangle -->\n"
            "<WORLD><MESH ID=\"0\"><MAT ID=\"0\"><DIFF>1,1,1</DIFF></MAT>"
            "<P ID=\"0\">0,0,0</P><P ID=\"1\">1,0,0</P><P ID=\"2\">0,1,0</P>\n"
            "<F><MATREF>0</MATREF><FV1><PREF>0</PREF></FV1><FV2><PREF>1</PREF></FV2><FV3><PREF>2</PREF></FV3></F>"
            "</MESH>\n<OBJECT><MESHREF>0</MESHREF></OBJECT></WORLD>\n");

  const auto first = runExport(batchArgs(src, out, config));
  EXPECT_EQ(first.exitCode, 0) << first.err;
  EXPECT_EQ(statuses(out), (std::map<std::string, std::string>{
                               {"crate.3ds", "exported"}, {"crate.obj", "exported"}, {"triangle.xml", "exported"}}));
  EXPECT_EQ(recordOf(out, "crate.3ds")["outputs"], json({"cloth.png", "crate.3ds.skd", "crate.3ds.zt2"}));
  EXPECT_EQ(recordOf(out, "crate.obj")["outputs"], json({"crate.obj.skd", "crate.obj.zt2", "wood.png"}));
  EXPECT_EQ(recordOf(out, "triangle.xml")["outputs"], json({"triangle.skd", "triangle.zt2"}));
  EXPECT_FALSE(fs::exists(out / "crate.zt2"));
  const auto second = runExport(batchArgs(src, out, config));
  EXPECT_EQ(second.exitCode, 0) << second.err;
  for (const auto& [input, status] : statuses(out)) EXPECT_EQ(status, "up to date") << input;

  // A whole name that still meets another's: both refused, named, not one skipped.
  fs::copy_file(src / "crate.3ds", src / "crate.3ds.obj");
  const auto clash = runExport(batchArgs(src, out, config));
  EXPECT_EQ(clash.exitCode, 1) << clash.err;
  EXPECT_EQ(statuses(out)["crate.3ds"], "failed");
  EXPECT_EQ(statuses(out)["crate.3ds.obj"], "failed");
  EXPECT_NE(recordOf(out, "crate.3ds")["messages"].dump().find(
                "crate.3ds and crate.3ds.obj would all be exported to crate.3ds.zt2"),
            std::string::npos);
}

// A stamp or the manifest whose name a link holds replaces the link: the
// file it names, outside the output folder, is never written through.
TEST(BatchIntegrity, LinksPlantedAtAStampOrTheManifestAreReplacedNotWrittenThrough) {
  TempDir dir;
  const fs::path src = dir.path() / "src", out = dir.path() / "out";
  makeTree(src);
  fs::create_directories(out);
  writeText(dir.file("victim-stamp"), "victim");
  writeText(dir.file("victim-manifest"), "victim");
  fs::create_symlink(dir.file("victim-stamp"), out / "example.zt2.stamp");
  fs::create_symlink(dir.file("victim-manifest"), out / "ztexport-manifest.json");
  const auto r = runExport(batchArgs(src, out, dir.path() / "config", {"--include", "*.json"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(readText(dir.file("victim-stamp")), "victim");
  EXPECT_EQ(readText(dir.file("victim-manifest")), "victim");
  EXPECT_FALSE(fs::is_symlink(out / "example.zt2.stamp"));
  EXPECT_FALSE(fs::is_symlink(out / "ztexport-manifest.json"));
  EXPECT_EQ(statuses(out)["example.scene.json"], "exported");

  // A folder of the tree whose place in the output folder is a link leading
  // out of it: that file fails, naming the place, and nothing lands outside.
  fs::create_directories(src / "level");
  fs::copy_file(src / "example.scene.json", src / "level" / "example.scene.json");
  fs::create_directories(dir.path() / "elsewhere");
  fs::create_symlink(dir.path() / "elsewhere", out / "level");
  const auto planted = runExport(batchArgs(src, out, dir.path() / "config", {"--include", "*.json"}));
  EXPECT_EQ(planted.exitCode, 1) << planted.err;
  EXPECT_EQ(statuses(out)["level/example.scene.json"], "failed");
  EXPECT_NE(readText((out / "ztexport-manifest.json").string()).find("level: a symbolic link to a place outside the output directory"),
            std::string::npos);
  EXPECT_TRUE(fs::is_empty(dir.path() / "elsewhere"));
}
