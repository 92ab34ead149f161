// The material list as it goes into the scene file: one MaterialListRecord
// holding a MaterialRecord per exported material, each owning up to five
// texture layers. Records are filled by the material pass and written at once
// by their chunk writers (docs/zt2-format.md, section 2.3).
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "format/memory_file.h"

struct TextureRecord {
  std::string name;
  int textureValue = 0;
  int textureMode = 0;
  std::vector<std::string> fileNames;  // one per frame that loaded, without directory
  // Written only when more than one file name is listed.
  bool sequenceSwitch1 = false;
  bool sequenceSwitch2 = false;
  int sequenceValue1 = 0;
  int sequenceValue2 = 0;
  int sequenceMode = 2;

  // Empty when the record may be written; otherwise what is wrong with it.
  std::string validate() const;
};

// Four floats on a 0..255 scale.
struct MaterialColor {
  float r = 0.0f;
  float g = 0.0f;
  float b = 0.0f;
  float a = 255.0f;
};

class MaterialRecord {
 public:
  static constexpr int kLayerCount = 5;
  static constexpr int kDiffuseLayer = 0;  // layer 1
  static constexpr int kMaskLayer = 4;     // layer 5

  // The texture of layer `i` (0-based), created on first request: asking for
  // it is what makes the layer present. Throws T_MemoryException_Allocation
  // when memory runs out.
  TextureRecord& layer(int i);
  // The texture of layer `i`, or none when the layer is absent.
  const TextureRecord* presentLayer(int i) const { return layers_.slots.at(static_cast<std::size_t>(i)).get(); }
  bool hasLayer(int i) const { return presentLayer(i) != nullptr; }
  int presentLayerCount() const;

  // Empty when the record may be written; otherwise what is wrong with it.
  std::string validate() const;

  std::string name;
  bool switch1 = false;
  bool switch2 = false;
  bool switch3 = false;
  bool switch4 = false;
  bool switch5 = false;
  int plainLayerMode = 1;
  int option1 = 0;
  int layer2Mode = 0;
  MaterialColor ambient;
  MaterialColor diffuse;
  MaterialColor specular;
  float value1 = 0.0f;
  float value2 = 0.0f;
  int diffuseMode = 0;
  int mode2 = 0;
  int maskMode = 0;
  bool switch6 = false;
  bool switch7 = false;
  bool switch8 = false;
  int intValue = 240;

 private:
  // The record owns its textures; a copy of the record copies them.
  struct LayerSlots {
    LayerSlots() = default;
    LayerSlots(const LayerSlots& other);
    LayerSlots& operator=(const LayerSlots& other);
    LayerSlots(LayerSlots&&) noexcept = default;
    LayerSlots& operator=(LayerSlots&&) noexcept = default;
    std::array<std::unique_ptr<TextureRecord>, kLayerCount> slots;
  };
  LayerSlots layers_;
};

struct MaterialListRecord {
  std::string texturePath;
  std::vector<MaterialRecord> materials;  // slot i holds the material of index i
};

T_MemoryFile& operator<<(T_MemoryFile& file, const TextureRecord& record);
T_MemoryFile& operator<<(T_MemoryFile& file, const MaterialRecord& record);
T_MemoryFile& operator<<(T_MemoryFile& file, const MaterialListRecord& record);
