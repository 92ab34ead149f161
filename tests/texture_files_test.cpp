// Textures as artists' models name them (another folder, another letter case,
// another extension, a textures folder beside the model, --texture-path), the
// messages when one is missing or unreadable, --missing-textures drop, and
// images in the formats only the fallback decoder reads, written by hand here.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "images/image_decode.h"
#include "support/scene_export.h"

using ztx_test::runExport;
using ztx_test::TempDir;

namespace fs = std::filesystem;

namespace {

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
      {"absolute artist path", "/home/artist/Desktop/m134.tga", {"model/m134.tga"}, {}, 0, "m134.tga", ""},
      {"another system's path", "C:\\Users\\artist\\m134.tga", {"model/m134.tga"}, {}, 0, "m134.tga", ""},
      {"letter case of the file", "WOOD.TGA", {"model/wood.tga"}, {}, 0, "wood.tga", ""},
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
    std::vector<std::string> args = {root + "/model/m.obj", "-o", dir.file("out/m.zt2"), "--config-dir",
                                     dir.file("config"), "--set", "exportSkinning=0"};
    for (const std::string& a : c.args) args.push_back(place(a));
    const auto r = runExport(args);
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
  const auto r = runExport({dir.file("scene.json"), "-o", dir.file("out.zt2"), "--config-dir", dir.file("config"),
                            "--set", "exportSkinning=0"});
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_TRUE(fs::exists(dir.file("Bark.tga"))) << r.out;
  ztx_test::writeText(dir.file("bad.json"), R"({"texturePaths": [""]})");
  const auto bad = runExport({dir.file("bad.json"), "-o", dir.file("bad.zt2"), "--config-dir", dir.file("config")});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_NE(bad.err.find("bad.json: texturePaths[0]: a folder cannot be empty"), std::string::npos) << bad.err;
}

// DDS, TIFF and SGI images decode, pixel for pixel, through the fallback
// decoder, which the formats stb reads never load.
TEST(TextureFiles, ImagesStbCannotReadGoToTheFallbackDecoder) {
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
}

// The three formats as textures of an exported scene, copied beside it and
// embedded in zt2dump's glTF as PNG, the one format there besides JPEG.
TEST(TextureFiles, FallbackFormatsExportAndBecomePngInGltf) {
  TempDir dir;
  ztx_test::writeBytes(dir.file("a.dds"), dds());
  ztx_test::writeBytes(dir.file("b.tif"), tiff());
  ztx_test::writeBytes(dir.file("c.rgb"), sgi());
  std::string materials, meshes;
  const char* files[] = {"a.dds", "b.tif", "c.rgb"};
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
  const auto r = runExport({dir.file("scene.json"), "-o", dir.file("out/s.zt2"), "--config-dir", dir.file("config"),
                            "--set", "exportSkinning=0"});
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
