// zt2export against files that are not files (a FIFO as a model, an image or
// an image list's entry) and against image lists that are long or change
// under the bitmap manager. A FIFO is refused by name at once: each run goes
// through coreutils' timeout, so that a run waiting on one fails the test
// instead of hanging it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/bitmap.h"
#include "host/memory/memory_bitmaps.h"
#include "support/scene_export.h"

using ztx_test::TempDir;

namespace fs = std::filesystem;

namespace {

// One triangle with a material whose first layer shows the image `map`.
std::string texturedScene(const std::string& map) {
  return R"({
    "texmaps": [{"id": "t", "type": "ztTexture", "name": "Tex", "params": {"mapFileName": ")" + map + R"("}}],
    "materials": [{"id": "m", "type": "ztMaterial", "name": "Mat", "texmaps": ["t"], "params": {"layer1Flag": 1}}],
    "objects": [{"id": "tri", "type": "mesh", "mesh": {"vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0], "faces": [0, 1, 2]}}],
    "nodes": [{"name": "A", "object": "tri", "material": "m"}]})";
}

ztx_test::RunResult exportWithin(const std::vector<std::string>& args) {
  std::vector<std::string> all = {"-k", "5", "60", ZTX_ZT2EXPORT};
  all.insert(all.end(), args.begin(), args.end());
  return ztx_test::run(ZTX_TIMEOUT, all);
}

void copyImage(const TempDir& dir, const char* name) {
  fs::copy_file(ztx_test::sourcePath(std::string("examples/textures/") + name), dir.path() / "img" / name);
}

}  // namespace

TEST(Zt2ExportHostileGrowth, AFifoIsRefusedByNameAndNeverWaitedOn) {
  struct Case {
    const char* what;
    std::string scene;  // the scene file's text; none: the model is the FIFO itself
    std::string input;  // what zt2export is given
    int exitCode;
    std::string message;  // on standard error, after the temporary directory
    std::string infoLine;  // the exporter's own line, when the export runs
  };
  const Case cases[] = {
      {"a model", "", "pipe.3ds", 2, "pipe.3ds: cannot open the file: a FIFO, not a regular file", ""},
      {"a model of a general format", "", "pipe.obj", 2, "pipe.obj: cannot open the file: a FIFO, not a regular file",
       ""},
      {"a texture", texturedScene("img/pipe.png"), "scene.json", 1,
       "img/pipe.png: cannot read the image: a FIFO, not a regular file",
       "ERROR: Couldn't open texture \"img/pipe.png\""},
      {"an image list's entry", texturedScene("img/list.ifl"), "scene.json", 1,
       "img/pipe.png: cannot read the image: a FIFO, not a regular file",
       "ERROR: Couldn't open texture \"img/list.ifl\""},
      {"an image list", texturedScene("img/pipe.ifl"), "scene.json", 1,
       "img/pipe.ifl: cannot read the image list: a FIFO, not a regular file",
       "ERROR: Couldn't open texture \"img/pipe.ifl\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    fs::create_directories(dir.path() / "img");
    copyImage(dir, "skin.png");
    ztx_test::writeText(dir.file("img/list.ifl"), "skin.png\npipe.png\nskin.png\n");
    for (const char* fifo : {"pipe.3ds", "pipe.obj", "img/pipe.png", "img/pipe.ifl"})
      ASSERT_EQ(::mkfifo(dir.file(fifo).c_str(), 0644), 0);
    if (!c.scene.empty()) ztx_test::writeText(dir.file("scene.json"), c.scene);
    const auto r = exportWithin({dir.file(c.input), "-o", dir.file("out.zt2"), "--config-dir", dir.file("config"),
                                 "--set", "exportSkinning=0", "--set", "exportAnimation=0"});
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    EXPECT_NE(r.err.find("zt2export: " + dir.file(c.message)), std::string::npos) << r.err;
    if (!c.infoLine.empty()) {
      EXPECT_NE(r.out.find(c.infoLine + "\n"), std::string::npos) << r.out;
    }
    EXPECT_FALSE(fs::exists(dir.file("out.zt2")));
  }
}

// The texture's record names every frame's file, repeats included, and each
// file is copied once: the same for a list of 20,000 entries as for three.
TEST(Zt2ExportHostileGrowth, ALongImageListKeepsEveryEntryInOrder) {
  TempDir dir;
  fs::create_directories(dir.path() / "img");
  const char* const images[] = {"wave1.png", "wave2.png", "wave3.png", "skin.png"};
  for (const char* png : images) copyImage(dir, png);
  constexpr int kEntries = 20000;
  std::string list = "; a long sequence\n";
  for (int i = 0; i < kEntries; ++i) list += std::string(images[(i * 7) % 4]) + (i % 3 ? "\n" : "\r\n");
  ztx_test::writeText(dir.file("img/long.ifl"), list);
  const auto run = ztx_test::exportSceneIn(dir, texturedScene("img/long.ifl"),
                                           {"--set", "exportSkinning=0", "--set", "exportAnimation=0"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  std::vector<std::string> names;
  for (const auto& chunk : ztx_test::topChunks(run.file)) {
    if (chunk.at("name") != "MaterialListChunk") continue;
    for (const auto& name : chunk.at("children").at(0).at("children").at(0).at("fields").at("fileNames"))
      names.push_back(name);
  }
  ASSERT_EQ(names.size(), std::size_t{kEntries});
  for (int i = 0; i < kEntries; ++i) ASSERT_EQ(names[i], images[(i * 7) % 4]) << i;
  int copies = 0;
  for (const std::string& line : ztx_test::infoLines(run)) copies += line.rfind("INFO: Texture \"", 0) == 0;
  EXPECT_EQ(copies, 4);
}

// A list and its images are read once while they stay the same files; a list
// or an image that changes between two loads is read again.
TEST(Zt2ExportHostileGrowth, AChangedListOrImageIsReadAgain) {
  TempDir dir;
  fs::create_directories(dir.path() / "img");
  copyImage(dir, "wave1.png");
  copyImage(dir, "skin.png");
  ztx_test::writeText(dir.file("img/seq.ifl"), "wave1.png\nwave1.png\n");
  hostmodel::MemoryBitmapManager manager(dir.path().string());
  BitmapInfo image("img/seq.ifl");
  ASSERT_EQ(manager.GetImageInfo(&image), BMMRES_SUCCESS);
  EXPECT_EQ(image.NumberFrames(), 2);
  const auto load = [&](int frame) {
    BitmapInfo info(image);
    info.SetCurrentFrame(frame);
    BMMRES status = BMMRES_ERRORTAKENCARE;
    Bitmap* bitmap = manager.Load(&info, &status);
    const std::string name = bitmap ? bitmap->Info().Filename() : "(none)";
    if (bitmap) bitmap->DeleteThis();
    return name;
  };
  EXPECT_EQ(load(0), "wave1.png");
  ztx_test::writeText(dir.file("img/seq.ifl"), "skin.png\nskin.png\nwave1.png\n");  // another length
  EXPECT_EQ(load(1), "skin.png");
  // The image decoded before is now cut short: it fails, with its reason.
  const auto png = ztx_test::readBytes(dir.file("img/skin.png"));
  ztx_test::writeBytes(dir.file("img/skin.png"), {png.begin(), png.begin() + 40});
  EXPECT_EQ(load(1), "(none)");
  EXPECT_EQ(load(2), "wave1.png");
  ASSERT_EQ(manager.problems().size(), 1u);
  EXPECT_EQ(manager.problems()[0].rfind(dir.file("img/skin.png") + ": cannot read the image: it is no image", 0), 0u)
      << manager.problems()[0];
  EXPECT_EQ(manager.outstandingBitmaps(), 0);
}
