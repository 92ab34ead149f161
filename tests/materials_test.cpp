// Materials and textures: whole exports read back through zt2dump, texture
// copying in a temporary directory, images that fail to load, every message
// of the material checks; textures as artists' models name them (another
// folder, another letter case, another extension, a textures folder beside
// the model, --texture-path), the messages when one is missing or unreadable,
// --missing-textures drop, and images in the formats only the fallback decoder
// reads, written by hand here.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "host/material.h"
#include "host/memory/memory_host.h"
#include "images/image_decode.h"
#include "materials/material_records.h"
#include "materials/texture_export.h"
#include "plugin/scene_exporter.h"
#include "support/scene_export.h"

namespace fs = std::filesystem;
using nlohmann::json;
using ztx_test::TempDir;

namespace {

// Each case in a directory of its own holding the images: still PNGs, a
// three-frame list, and a list showing one file in every frame.
class Materials : public testing::Test {
 protected:
  Materials() {
    fs::create_directories(dir.path() / "img");
    for (const char* png : {"skin.png", "wave1.png", "wave2.png", "wave3.png"})
      fs::copy_file(ztx_test::sourcePath(std::string("examples/textures/") + png), dir.path() / "img" / png);
    ztx_test::writeText(dir.file("img/wave.ifl"), "; frames\nwave1.png\n\n  wave2.png  \nwave3.png\n");
    ztx_test::writeText(dir.file("img/same.ifl"), "skin.png\nskin.png\nskin.png\n");
  }
  // Exports `scene` without skin and animation, with one more option set.
  ztx_test::ExportRun exportWith(const std::string& scene, const std::string& set, const std::string& out = "out.zt2") {
    return ztx_test::exportSceneIn(dir, scene,
                                   {"--set", "exportSkinning=0", "--set", "exportAnimation=0", "--set", set}, out);
  }
  TempDir dir;
};

// Two nodes: the first carries a multi-material (Layers, empty, Still), the
// second Plain; so the pre-pass meets Layers, Still, Plain in that order.
const std::string kScene = R"({
  "texmaps": [
    {"id": "seq", "type": "ztTexture", "name": "Seq",
     "params": {"mapFileName": "img/wave.ifl", "mode": 3, "valueFlag": 1, "value": 9, "sequenceSwitch1": 1,
                "sequenceSwitch2": 1, "sequenceValue1": 4, "sequenceValue2": -2, "sequenceMode": 0}},
    {"id": "same", "type": "ztTexture", "name": "Same", "params": {"mapFileName": "img/same.ifl"}},
    {"id": "still", "type": "ztTexture", "name": "Still",
     "params": {"mapFileName": "img/skin.png", "mode": 7, "valueFlag": 2, "value": 5, "sequenceSwitch1": 1}}
  ],
  "materials": [
    {"id": "layers", "type": "ztMaterial", "name": "Layers",
     "ambient": [1, 0.5, 0], "diffuse": [0, 0, 1], "specular": [0.2, 0.2, 0.2],
     "texmaps": ["still", null, "seq", null, "same"],
     "params": {"flag1": 1, "flag2": 0, "flag3": 1, "flag4": 1, "flag5": 0, "flag6": 1, "flag7": 0,
                "value1": 0.5, "value2": 2.5, "diffuseMode": 1, "mode2": 5, "plainLayerMode": 2, "option1": 3,
                "layer1Flag": 0, "layer2Flag": 1, "layer5Flag": 1, "layer2Mode": 2, "layer2ExtraFlag": 1,
                "maskMode": 1, "intValue": -3}},
    {"id": "still", "type": "ztMaterial", "name": "Still", "texmaps": ["still"], "params": {"layer1Flag": 1}},
    {"id": "plain", "type": "ztMaterial", "name": "Plain", "ambient": [0, 0, 0], "diffuse": [0, 0, 0],
     "specular": [0, 0, 0]},
    {"id": "multi", "type": "multi", "name": "Multi", "subMaterials": ["layers", null, "still"]}
  ],
  "objects": [{"id": "tri", "type": "mesh", "mesh": {"vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0], "faces": [0, 1, 2],
               "materialIds": [2]}}],
  "nodes": [{"name": "A", "object": "tri", "material": "multi"}, {"name": "B", "object": "tri", "material": "plain"}]
})";

const json& materialList(const json& file) {
  for (const json& c : ztx_test::topChunks(file))
    if (c.at("name") == "MaterialListChunk") return c;
  static const json none;
  return none;
}

std::vector<std::string> childNames(const json& chunk, const char* field = "name") {
  std::vector<std::string> names;
  for (const json& c : chunk.at("children")) names.push_back(c.at("fields").at(field));
  return names;
}

using Bytes = std::vector<unsigned char>;

void put16le(Bytes& b, unsigned v) { b.insert(b.end(), {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)}); }
void put32le(Bytes& b, std::uint32_t v) { put16le(b, v & 0xffff), put16le(b, v >> 16); }
void put16be(Bytes& b, unsigned v) { b.insert(b.end(), {static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)}); }

// 2x2 images; the pixel at (x, y) from the top has grey level 60 * (2y + x) + 10.
unsigned char grey(int x, int y) { return static_cast<unsigned char>(60 * (2 * y + x) + 10); }

// Uncompressed 24-bit TGA, rows from the bottom.
Bytes tga() {
  Bytes b = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  put16le(b, 2), put16le(b, 2);
  b.insert(b.end(), {24, 0});
  for (int y = 1; y >= 0; --y)
    for (int x = 0; x < 2; ++x) b.insert(b.end(), 3, grey(x, y));
  return b;
}

// DDS, uncompressed 32-bit BGRA.
Bytes dds() {
  Bytes b = {'D', 'D', 'S', ' '};
  put32le(b, 124);
  put32le(b, 0x1 | 0x2 | 0x4 | 0x8 | 0x1000);  // caps, height, width, pitch, pixel format
  put32le(b, 2), put32le(b, 2), put32le(b, 8), put32le(b, 0), put32le(b, 1);
  for (int i = 0; i < 11; ++i) put32le(b, 0);
  put32le(b, 32), put32le(b, 0x41), put32le(b, 0), put32le(b, 32);  // RGB with alpha, 32 bits
  put32le(b, 0x00ff0000), put32le(b, 0x0000ff00), put32le(b, 0x000000ff), put32le(b, 0xff000000);
  put32le(b, 0x1000);  // a texture
  for (int i = 0; i < 4; ++i) put32le(b, 0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) b.insert(b.end(), {grey(x, y), grey(x, y), grey(x, y), 255});
  return b;
}

// Little-endian baseline TIFF, 8-bit grey, one strip.
Bytes tiff() {
  Bytes b = {'I', 'I', 42, 0};
  put32le(b, 8);
  const std::uint32_t entries = 8, pixelsAt = 8 + 2 + entries * 12 + 4;
  put16le(b, entries);
  auto entry = [&](unsigned tag, unsigned type, std::uint32_t value) {
    put16le(b, tag), put16le(b, type), put32le(b, 1);
    if (type == 3) put16le(b, value), put16le(b, 0);
    else put32le(b, value);
  };
  entry(256, 3, 2);          // width
  entry(257, 3, 2);          // height
  entry(258, 3, 8);          // bits per sample
  entry(259, 3, 1);          // no compression
  entry(262, 3, 1);          // black is zero
  entry(273, 4, pixelsAt);   // strip offset
  entry(278, 3, 2);          // rows per strip
  entry(279, 4, 4);          // strip bytes
  put32le(b, 0);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) b.push_back(grey(x, y));
  return b;
}

// SGI image, verbatim, one 8-bit channel, rows from the bottom.
Bytes sgi() {
  Bytes b;
  put16be(b, 474);
  b.insert(b.end(), {0, 1});  // verbatim, one byte per channel
  put16be(b, 2), put16be(b, 2), put16be(b, 2), put16be(b, 1);
  b.insert(b.end(), {0, 0, 0, 0, 0, 0, 0, 255});  // pixel range 0..255
  b.resize(512, 0);
  for (int y = 1; y >= 0; --y)
    for (int x = 0; x < 2; ++x) b.push_back(grey(x, y));
  return b;
}

// The smallest PNG stb writes is not at hand here; a TGA under its own name
// serves where any readable image will do.
void writeImage(const std::string& path) { ztx_test::writeBytes(path, tga()); }

// An OBJ model of one triangle whose material names `map` as its diffuse map.
void writeModel(const TempDir& dir, const std::string& map) {
  fs::create_directories(dir.file("model"));
  ztx_test::writeText(dir.file("model/m.mtl"), "newmtl Wood\nmap_Kd " + map + "\n");
  ztx_test::writeText(dir.file("model/m.obj"), "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\n"
                                               "usemtl Wood\nf 1/1 2/2 3/3\n");
}

}  // namespace

TEST_F(Materials, WholeExportReadsBackInPrePassOrder) {
  const auto run = exportWith(kScene, "texturePath=maps;more");
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  const json& list = materialList(run.file);
  ASSERT_FALSE(list.is_null());
  EXPECT_EQ(list["fields"]["texturePath"], "maps;more");
  EXPECT_EQ(list["fields"]["materialCount"], 3);
  EXPECT_EQ(childNames(list), (std::vector<std::string>{"Layers", "Still", "Plain"}));

  // Plain carries no parameters and black colours: the default record under its name.
  EXPECT_EQ(list["children"][2]["fields"], json::parse(R"({"name": "Plain", "switch1": false, "switch2": false,
      "switch3": false, "switch4": false, "switch5": false, "plainLayerMode": 1, "option1": 0, "layer2Mode": 0,
      "ambient": [0.0, 0.0, 0.0, 255.0], "diffuse": [0.0, 0.0, 0.0, 255.0], "specular": [0.0, 0.0, 0.0, 255.0],
      "value1": 0.0, "value2": 0.0, "diffuseMode": 0, "mode2": 0, "reserved": 0.0, "layer1Present": false,
      "layer2Present": false, "layer3Present": false, "layer4Present": false, "layer5Present": false,
      "maskMode": 0, "switch6": false, "switch7": false, "switch8": false, "intValue": 240})"));
  EXPECT_TRUE(list["children"][2]["children"].empty());

  // Layers: flags 4 and 5 change places, modes out of range keep their defaults, layers 2 and 5 only.
  const json& layers = list["children"][0];
  EXPECT_EQ(layers["fields"], json::parse(R"({"name": "Layers", "switch1": true, "switch2": false,
      "switch3": true, "switch4": false, "switch5": true, "plainLayerMode": 2, "option1": 0, "layer2Mode": 2,
      "ambient": [255.0, 127.5, 0.0, 255.0], "diffuse": [0.0, 0.0, 255.0, 255.0],
      "specular": [51.0, 51.0, 51.0, 255.0], "value1": 0.5, "value2": 2.5, "diffuseMode": 1, "mode2": 0,
      "reserved": 0.0, "layer1Present": false, "layer2Present": true, "layer3Present": false,
      "layer4Present": false, "layer5Present": true, "maskMode": 1, "switch6": true, "switch7": true,
      "switch8": false, "intValue": -3})"));
  ASSERT_EQ(childNames(layers), (std::vector<std::string>{"Seq", "Same"}));
  // A three-frame list: three names and the five sequence fields, value and mode taken.
  EXPECT_EQ(layers["children"][0]["fields"], json::parse(R"({"name": "Seq", "textureValue": 9, "textureMode": 3,
      "fileNameCount": 3, "fileNames": ["wave1.png", "wave2.png", "wave3.png"], "sequenceSwitch1": true,
      "sequenceSwitch2": true, "sequenceValue1": 4, "sequenceValue2": -2, "sequenceMode": 0})"));
  // One file in every frame: listed three times.
  EXPECT_EQ(layers["children"][1]["fields"]["fileNames"], json::parse(R"(["skin.png", "skin.png", "skin.png"])"));
  EXPECT_EQ(layers["children"][1]["fields"]["sequenceMode"], 2);
  // A still image: no sequence fields; mode 7 and value flag 2 leave 0.
  EXPECT_EQ(list["children"][1]["children"][0]["fields"], json::parse(R"({"name": "Still", "textureValue": 0,
      "textureMode": 0, "fileNameCount": 1, "fileNames": ["skin.png"]})"));

  // The mesh names the material of its face; the copies land in the export's directory plus
  // the texture path's first part, each destination once, though the same file shows four times.
  const json meshA = ztx_test::findObject(run.file, "A");
  for (const json& c : meshA["children"])
    if (c["name"] == "MeshMaterialNamesChunk") {
      EXPECT_EQ(c["fields"]["names"], json::array({"Still"}));
    }
  const std::string maps = dir.file("maps");
  const std::string img = dir.file("img");
  EXPECT_EQ(ztx_test::infoLines(run), (std::vector<std::string>{
      "INFO: Directory \"" + maps + "\" created for textures.",
      "INFO: Texture \"" + img + "/wave1.png\" copied to \"" + maps + "/wave1.png\".",
      "INFO: Texture \"" + img + "/wave2.png\" copied to \"" + maps + "/wave2.png\".",
      "INFO: Texture \"" + img + "/wave3.png\" copied to \"" + maps + "/wave3.png\".",
      "INFO: Texture \"" + img + "/skin.png\" copied to \"" + maps + "/skin.png\"."}));
  for (const char* png : {"skin.png", "wave1.png", "wave2.png", "wave3.png"})
    EXPECT_EQ(ztx_test::readBytes(maps + "/" + png), ztx_test::readBytes(img + "/" + png)) << png;
}

TEST_F(Materials, CopiesNeverOverwrite) {
  // A file already at one destination, older and different from the image.
  fs::create_directories(dir.path() / "maps");
  const std::string kept = dir.file("maps/skin.png");
  ztx_test::writeText(kept, "not the image");
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
  fs::last_write_time(kept, old);

  const auto run = exportWith(kScene, "texturePath=maps");
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  const auto lines = ztx_test::infoLines(run);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[3], "INFO: Texture \"" + kept + "\" already exists - file not overwritten.");
  EXPECT_EQ(ztx_test::readText(kept), "not the image");
  EXPECT_EQ(fs::last_write_time(kept), old);
}

TEST_F(Materials, CopyFailureIsAnErrorWithTheSystemText) {
  // A file where the copy directory's parent should be: neither creating the directory nor
  // copying into it can work, whoever runs the test.
  ztx_test::writeText(dir.file("blocker"), "");
  const auto run = exportWith(kScene, "texturePath=blocker/maps");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_FALSE(run.fileWritten);
  // The directory is still missing at each copy, so each tries to create it
  // again; none says it was created, since none was.
  std::vector<std::string> expected;
  const std::string maps = dir.file("blocker/maps");
  for (const char* png : {"wave1.png", "wave2.png", "wave3.png", "skin.png"})
    expected.push_back("ERROR: Couldn't copy texture \"" + dir.file("img/") + png + "\" to \"" + maps + "/" + png +
                       "\": " + dir.file("blocker") + ": " + std::strerror(ENOTDIR) + ".");
  expected.push_back("Export process canceled due to error(s) encountered.");
  EXPECT_EQ(ztx_test::infoLines(run), expected);
}

// The texture converter on its own, where the record can be looked at even
// when the export fails.
TEST_F(Materials, FramesThatFailToLoadAreLeftOutWithTheirError) {
  const auto png = ztx_test::readBytes(dir.file("img/wave2.png"));
  ztx_test::writeBytes(dir.file("img/cut.png"), {png.begin(), png.begin() + 40});
  ztx_test::writeText(dir.file("img/text.png"), "this is no image");
  // The image (and its list's text), the file names expected, how many frames fail, and
  // whether the image has several frames, which alone decides that the sequence settings are taken.
  const std::vector<std::tuple<std::string, std::string, std::vector<std::string>, std::size_t, bool>> cases = {
      {"img/middle.ifl", "wave1.png\ncut.png\nwave3.png\n", {"wave1.png", "wave3.png"}, 1, true},
      {"img/other.ifl", "text.png\nnone.png\nwave.ifl\nwave2.png\n", {"wave2.png"}, 3, true},
      {"img/cut.png", "", {}, 1, false},
      {"img/empty.ifl", "; nothing\n\n", {}, 1, false},
  };
  for (const auto& [image, frames, names, failed, sequence] : cases) {
    if (!frames.empty()) ztx_test::writeText(dir.file(image), frames);
    auto host = hostmodel::loadSceneFromString(R"({"texmaps": [{"id": "t", "type": "ztTexture",
        "params": {"mapFileName": ")" + image + R"(", "sequenceSwitch1": 1, "sequenceMode": 1}}]})",
                                               dir.path().string());
    SceneExporter exporter;
    exporter.host = host.get();
    exporter.options.copyTextures = false;
    TextureRecord record;
    exportTexture(exporter, record, *host->findTexmap("t"));
    EXPECT_EQ(record.fileNames, names) << image;
    EXPECT_TRUE(exporter.hasError()) << image;
    EXPECT_EQ(exporter.infoLog.lines(),
              std::vector<std::string>(failed, "ERROR: Couldn't open texture \"" + image + "\"")) << image;
    EXPECT_EQ(record.sequenceSwitch1, sequence) << image;
    EXPECT_EQ(record.sequenceMode, sequence ? 1 : 2) << image;
    // ... but the chunk carries them only with more than one file name: with one left, the
    // bytes are those of a record whose settings were never taken.
    TextureRecord untaken = record;
    untaken.sequenceSwitch1 = false;
    untaken.sequenceMode = 2;
    T_MemoryFile written, plain;
    written << record;
    plain << untaken;
    const auto bytes = [](const T_MemoryFile& f) { return std::vector<std::uint8_t>(f.data(), f.data() + f.size()); };
    EXPECT_EQ(bytes(written) == bytes(plain), names.size() < 2) << image;
    EXPECT_EQ(host->outstandingBitmaps(), 0);
  }
}

TEST_F(Materials, EveryCheckReportsInOrder) {
  // Pre-pass order: Dup, Std, Dup, Twin, Twin, Dup, NoVis, Mask, BadTex, NoMap, Missing.
  const std::string scene = R"({
    "texmaps": [{"id": "still", "type": "ztTexture", "name": "Still", "params": {"mapFileName": "img/skin.png"}}],
    "materials": [
      {"id": "dup1", "type": "ztMaterial", "name": "Dup"},
      {"id": "std", "type": "standard", "name": "Std"},
      {"id": "dup2", "type": "ztMaterial", "name": "Dup"},
      {"id": "twin1", "type": "ztMaterial", "name": "Twin"},
      {"id": "multi", "type": "multi", "name": "Multi", "subMaterials": ["std", "dup2", null, "twin1"]},
      {"id": "twin2", "type": "ztMaterial", "name": "Twin"},
      {"id": "dup3", "type": "ztMaterial", "name": "Dup"},
      {"id": "novis", "type": "ztMaterial", "name": "NoVis", "params": {"plainLayerMode": 0, "layer3Flag": 1}},
      {"id": "mask", "type": "ztMaterial", "name": "Mask", "texmaps": ["still", null, null, null, "still"],
       "params": {"diffuseMode": 0, "layer1Flag": 1, "layer5Flag": 1}},
      {"id": "badtex", "type": "ztMaterial", "name": "BadTex", "texmaps": [null, {"type": "bitmap", "name": "Bmp"}],
       "params": {"layer4Flag": 1}},
      {"id": "nomap", "type": "ztMaterial", "name": "NoMap", "texmaps": [{"type": "ztTexture", "name": "Empty"}],
       "params": {"layer1Flag": 1}},
      {"id": "missing", "type": "ztMaterial", "name": "Missing",
       "texmaps": [{"type": "ztTexture", "name": "Gone", "params": {"mapFileName": "img/gone.png"}}],
       "params": {"layer1Flag": 1}}
    ],
    "nodes": [{"name": "N1", "material": "dup1"}, {"name": "N2", "material": "multi"},
              {"name": "N3", "material": "twin2"}, {"name": "N4", "material": "dup3"},
              {"name": "N5", "material": "novis"}, {"name": "N6", "material": "mask"},
              {"name": "N7", "material": "badtex"}, {"name": "N8", "material": "nomap"},
              {"name": "N9", "material": "missing"}]})";
  const auto run = exportWith(scene, "copyTextures=0");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_FALSE(run.fileWritten);
  EXPECT_EQ(ztx_test::infoLines(run), (std::vector<std::string>{
      "ERROR: Materials should have a unique name: material \"Dup\" already defined.",
      "ERROR: Materials should have a unique name: material \"Twin\" already defined.",
      "ERROR: Materials should have a unique name: material \"Dup\" already defined.",
      "ERROR: Material \"Std\" not a ZTMaterial.",
      "ERROR: Material \"NoVis\" hasn't got any visible layers.",
      "ERROR: Material \"Mask\" has got mask layer, so diffuse cannot be copy(see ZT2.0 documentation)",
      "ERROR: Texture \"Bmp\" not a ZTTexture.",
      "WARNING: Texture \"Empty\" has no map assigned to it.",
      "ERROR: Couldn't open texture \"img/gone.png\"",
      "Export process canceled due to error(s) encountered."}));
}

// The rules validate() holds a record to are met where zt2dump --validate
// applies it to chunks written by hand (dump_errors_test.cpp).
TEST(MaterialRecords, ACopyHasTexturesOfItsOwn) {
  MaterialRecord a;
  a.layer(1).fileNames = {"one.png"};
  MaterialRecord b = a;
  b.layer(1).fileNames.push_back("two.png");
  EXPECT_EQ(a.presentLayer(1)->fileNames.size(), 1u);
  EXPECT_EQ(b.presentLayerCount(), 1);
}

using ztx_test::exportArgs;
using ztx_test::runExport;

// Each rule of the search: where the file lies, what the model calls it, the
// options, and what comes of it.
TEST(TextureFiles, ModelsFindTheirImagesAsArtistsLeaveThem) {
  struct Case {
    const char* rule;
    std::string map;                  // as the model names it
    std::vector<std::string> files;   // images made, relative to the test folder
    std::vector<std::string> args;    // more arguments; "@" stands for the test folder
    int exitCode;
    std::string copied;               // the file that lands beside the export, or empty
    std::string err;                  // on standard error
  };
  const Case cases[] = {
      {"as named", "wood.tga", {"model/wood.tga"}, {}, 0, "wood.tga", ""},
      {"sibling textures folder", "wood.tga", {"model/textures/wood.tga"}, {}, 0, "wood.tga", ""},
      {"the parent's textures folder", "maps\\wood.tga", {"Textures/wood.tga"}, {}, 0, "wood.tga", ""},
      {"another system's path", "C:\\Users\\artist\\m134.tga", {"model/m134.tga"}, {}, 0, "m134.tga", ""},
      {"letter case of a folder", "Maps/Wood.tga", {"model/maps/Wood.tga"}, {}, 0, "Wood.tga", ""},
      {"another extension", "/home/artist/m134.png", {"model/m134.tga"}, {}, 0, "m134.tga",
       "WARNING: @/model/m.obj: material \"Wood\": texture \"/home/artist/m134.png\" not found; \"@/model/m134.tga\", "
       "the same name with another extension, is taken instead"},
      {"the name itself before another extension", "wood.png", {"model/wood.tga", "elsewhere/wood.png"},
       {"--texture-path", "@/elsewhere"}, 1, "",
       "@/model/wood.png: cannot read the image: it is no image that can be decoded (stb_image: "},
      {"--texture-path", "wood.tga", {"elsewhere/wood.tga"}, {"--texture-path", "@/nowhere", "--texture-path",
       "@/elsewhere"}, 0, "wood.tga", ""},
      {"missing", "gone.tga", {}, {"--texture-path", "@/nowhere"}, 1, "",
       "ERROR: texture \"@/model/gone.tga\" not found: looked for \"gone.tga\" (in any letter case, or gone with "
       "another image extension) in: @/model, @/nowhere (no such folder)"},
      {"missing, dropped", "gone.tga", {}, {"--missing-textures", "drop"}, 0, "",
       "WARNING: @/model/m.obj: material \"Wood\": texture \"gone.tga\" not found (looked for \"gone.tga\" (in any "
       "letter case, or gone with another image extension) in: @/model); the map is left out"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rule);
    TempDir dir;
    const std::string root = fs::canonical(dir.path()).string();
    auto place = [&](std::string s) {
      for (std::size_t at; (at = s.find('@')) != std::string::npos;) s.replace(at, 1, root);
      return s;
    };
    writeModel(dir, c.map);
    for (const std::string& f : c.files) {
      fs::create_directories(fs::path(dir.file(f)).parent_path());
      writeImage(dir.file(f));
    }
    // Not an image at all, though the name says so.
    if (std::string(c.rule).find("itself") != std::string::npos) ztx_test::writeText(dir.file("model/wood.png"), "x");
    fs::create_directories(dir.file("out"));
    std::vector<std::string> args = {"--set", "exportSkinning=0"};
    for (const std::string& a : c.args) args.push_back(place(a));
    const auto r = runExport(exportArgs(dir, root + "/model/m.obj", dir.file("out/m.zt2"), args));
    EXPECT_EQ(r.exitCode, c.exitCode) << r.out << r.err;
    if (!c.copied.empty()) {
      EXPECT_TRUE(fs::exists(dir.file("out/" + c.copied))) << r.out << r.err;
    }
    EXPECT_NE(r.err.find(place(c.err)), std::string::npos) << r.err;
    if (c.err.empty()) {
      EXPECT_EQ(r.err.find("WARNING"), std::string::npos) << r.err;
    }
    if (c.exitCode == 1) {
      EXPECT_NE(r.out.find("ERROR: Couldn't open texture"), std::string::npos) << r.out;
    }
  }
}

// A scene file names its own search folders, relative to itself, and they
// come before those of the command line.
TEST(TextureFiles, SceneFilesSearchTheirTexturePaths) {
  TempDir dir;
  fs::create_directories(dir.file("maps"));
  writeImage(dir.file("maps/Bark.tga"));
  const std::string scene = R"({"texturePaths": ["maps"],
    "materials": [{"id": "m", "type": "ztMaterial", "name": "M", "params": {"layer1Flag": 1},
                   "texmaps": [{"type": "ztTexture", "name": "t", "params": {"mapFileName": "art/bark.tga"}}]}],
    "nodes": [{"name": "H", "object": {"type": "helper"}, "material": "m"}]})";
  ztx_test::writeText(dir.file("scene.json"), scene);
  const auto r = runExport(exportArgs(dir, dir.file("scene.json"), dir.file("out.zt2"), {"--set", "exportSkinning=0"}));
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_TRUE(fs::exists(dir.file("Bark.tga"))) << r.out;
  ztx_test::writeText(dir.file("bad.json"), R"({"texturePaths": [""]})");
  const auto bad = runExport(exportArgs(dir, dir.file("bad.json"), dir.file("bad.zt2")));
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_NE(bad.err.find("bad.json: texturePaths[0]: a folder cannot be empty"), std::string::npos) << bad.err;
}

// DDS, TIFF and SGI images decode, pixel for pixel, through the fallback
// decoder, which the formats stb reads never load.
TEST(TextureFiles, ImagesStbCannotReadGoToTheFallbackDecoderAndBecomePngInGltf) {
  TempDir dir;
  ztx_test::writeBytes(dir.file("a.tga"), tga());
  int width = 0, height = 0;
  std::string why;
  hostmodel::ImagePixels pixels;
  ASSERT_TRUE(hostmodel::decodeImage(dir.file("a.tga"), width, height, why, &pixels)) << why;
  // Nor does a file that is not there: no decoder can read it.
  EXPECT_FALSE(hostmodel::imageInfo(dir.file("none.png"), width, height));
  EXPECT_FALSE(hostmodel::decodeImage(dir.file("none.png"), width, height, why));
  EXPECT_EQ(why, "cannot be opened (No such file or directory)");
  EXPECT_FALSE(hostmodel::fallbackDecoderLoaded());
  const std::pair<const char*, Bytes> images[] = {{"a.dds", dds()}, {"a.tif", tiff()}, {"a.rgb", sgi()}};
  for (const auto& [name, bytes] : images) {
    SCOPED_TRACE(name);
    ztx_test::writeBytes(dir.file(name), bytes);
    ASSERT_TRUE(hostmodel::decodeImage(dir.file(name), width, height, why, &pixels)) << why;
    ASSERT_EQ(pixels.width, 2);
    ASSERT_EQ(pixels.height, 2);
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 2; ++x)
        EXPECT_EQ(pixels.bytes[static_cast<std::size_t>((y * 2 + x) * pixels.channels)], grey(x, y)) << x << "," << y;
  }
  EXPECT_TRUE(hostmodel::fallbackDecoderLoaded());
  ztx_test::writeText(dir.file("cut.dds"), "DDS ");
  EXPECT_FALSE(hostmodel::decodeImage(dir.file("cut.dds"), width, height, why));
  EXPECT_EQ(why.rfind("is no image that can be decoded (stb_image: ", 0), 0u) << why;
  EXPECT_NE(why.find("; OpenImageIO: "), std::string::npos) << why;

  // The three as textures of an exported scene, copied beside it and embedded
  // in zt2dump's glTF as PNG, the one format there besides JPEG.
  std::string materials, meshes;
  const char* files[] = {"a.dds", "a.tif", "a.rgb"};
  for (int i = 0; i < 3; ++i) {
    const std::string n = std::to_string(i);
    materials += std::string(i ? "," : "") + R"({"id": "m)" + n + R"(", "type": "ztMaterial", "name": "M)" + n +
                 R"(", "params": {"layer1Flag": 1}, "texmaps": [{"type": "ztTexture", "name": "t)" + n +
                 R"(", "params": {"mapFileName": ")" + files[i] + R"("}}]})";
    meshes += std::string(i ? "," : "") + R"({"name": "N)" + n + R"(", "material": "m)" + n + R"(", "object":
      {"type": "mesh", "mesh": {"vertices": [0,0,0, 1,0,0, 0,1,0], "faces": [0,1,2],
       "textureVertices": [0,0,0, 1,0,0, 0,1,0], "textureFaces": [0,1,2]}}})";
  }
  ztx_test::writeText(dir.file("scene.json"), R"({"materials": [)" + materials + R"(], "nodes": [)" + meshes + "]}");
  fs::create_directories(dir.file("out"));
  const auto r = runExport(exportArgs(dir, dir.file("scene.json"), dir.file("out/s.zt2"), {"--set", "exportSkinning=0"}));
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  for (const char* f : files) EXPECT_TRUE(fs::exists(dir.file(std::string("out/") + f))) << f;
  const auto g = ztx_test::runDump({dir.file("out/s.zt2"), "--gltf", dir.file("out/s.glb")});
  ASSERT_EQ(g.exitCode, 0) << g.out << g.err;
  EXPECT_EQ(g.err.find("no base colour texture"), std::string::npos) << g.err;
  const Bytes glb = ztx_test::readBytes(dir.file("out/s.glb"));
  const std::string text(glb.begin(), glb.end());
  std::size_t pngs = 0;
  for (std::size_t at = 0; (at = text.find("\"image/png\"", at)) != std::string::npos; ++at) ++pngs;
  EXPECT_EQ(pngs, 3u);
}
