// A scene file built chunk by chunk, holding what the exporter does not write
// yet: a material list with a diffuse texture, and transform keys with a
// hidden span.
#include "support/hand_built_scene.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/chunk_writing.h"

namespace ztx_test {

void writeMaterialsAndAnimation(const std::string& path) {
  T_MemoryFile f;
  writeChunk(f, 0x1000f, 0, [&] {
    f << std::string("maps\\;elsewhere") << 2;
    auto material = [&](const char* name, float r, float g, float b, const char* texture) {
      writeChunk(f, 0x10010, 2, [&] {
        f << std::string(name) << false << false << false << false << false << 0 << 0 << 0;
        for (float v : {0.0f, 0.0f, 0.0f, 255.0f, r, g, b, 255.0f, 255.0f, 255.0f, 255.0f, 255.0f}) f << v;
        f << 0.0f << 0.0f << 0 << 0 << 0.0f << (texture != nullptr);
        if (texture) writeChunk(f, 0x10011, 1, [&] { f << std::string("paint") << 0 << 0 << 1 << std::string(texture); });
        f << false << false << false << false << 0 << false << false << false << 0;
      });
    };
    material("Painted", 255, 128, 0, "skin.png");
    material("Plain", 0, 0, 255, nullptr);
  });
  writeChunk(f, 0x10016, 0, [&] {
    ObjectRecord r;
    r.name() = "Root";
    f << r << std::string("Dummy");
  });
  writeChunk(f, 0x10005, 2, [&] {
    ObjectRecord r;
    r.name() = "Box";
    r.parentName() = "Root";
    r.transform()[1] = {0.0f, 0.0f, 1.0f};
    r.transform()[2] = {0.0f, -1.0f, 0.0f};
    r.transform()[3] = {1.0f, 3.0f, 2.0f};
    r.setHasParent(true);
    f << r;
    const std::vector<FilePoint> corners{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    writeChunk(f, 0x10006, 1, [&] {
      writeRawBlock(f, corners);
      // The second group's normals are the file's "none".
      const std::vector<FilePoint> normals{{0, 0, -1}, {0, 0, -1}, {0, 0, -1}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
      f.write(normals.data(), 72);
      f << 2u << 3u << 3u;
    });
    writeChunk(f, 0x10007, 1, [&] {
      // Corners turn so that their edges' cross product runs along the normal, as exported.
      writeRawBlock(f, std::vector<std::uint16_t>{0, 2, 1, 0, 2, 1});
      f << 2u << 1u << 1u;
    });
    writeChunk(f, 0x1000c, 1, [&] { f << 2 << std::string("Painted") << std::string("Plain"); });
    writeChunk(f, 0x1000e, 1, [&] {
      f << 0u;
      writeRawBlock(f, std::vector<FilePoint>{{0, 0, 0}, {1, -0.25f, 0}, {0, -1, 0}, {0, 0, 0}, {1, 0, 0}, {0, -1, 0}});
      f << 2u << 3u << 3u;
    });
    writeChunk(f, 0x1000e, 1, [&] {  // vertex colours (r, -g), as the exporter keeps them
      f << 1u;
      writeRawBlock(f, std::vector<FilePoint>{{1, -0.5f, 0}, {1, -0.5f, 0}, {1, -0.5f, 0}, {0, -1, 0}, {0, -1, 0}, {0, -1, 0}});
      f << 2u << 3u << 3u;
    });
  });
  writeChunk(f, 0x10012, 5, [&] {
    writeChunk(f, 0x10013, 0, [&] { f << std::string("Box") << 10 << false; });
    M_Matrix4x3Template<float> first, last;
    last[3] = {1.0f, 2.0f, 3.0f};
    f << std::string("Root") << false << 5u << 2u << 0u << first << 4u << last;
    f << 3u << 0u << 1.0f << 2u << 0.0f << 3u << 1.0f;
    f << 0u << 0 << false;
  });
  ASSERT_TRUE(f.save(path.c_str()).ok());
}

}  // namespace ztx_test
