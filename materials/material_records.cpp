#include "materials/material_records.h"

#include "host/inhouse/exceptions.h"

#include <cassert>
#include <cmath>
#include <cstdio>

namespace {

bool inRange(int v, int low, int high) { return v >= low && v <= high; }

std::string rangeFault(const char* field, int v, int high) {
  return std::string(field) + " is " + std::to_string(v) + ", not 0.." + std::to_string(high);
}

bool finite(const MaterialColor& c) {
  return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) && std::isfinite(c.a);
}

T_MemoryFile& operator<<(T_MemoryFile& file, const MaterialColor& c) { return file << c.r << c.g << c.b << c.a; }

// Debug builds stop at the writer that is handed a record no converter should
// produce, rather than leaving an odd file to be found later.
template <typename Record>
void checkBeforeWriting([[maybe_unused]] const Record& record) {
#ifndef NDEBUG
  const std::string fault = record.validate();
  if (!fault.empty()) {
    std::fprintf(stderr, "invalid record \"%s\": %s\n", record.name.c_str(), fault.c_str());
    assert(!"record validated before writing");
  }
#endif
}

}  // namespace

std::string TextureRecord::validate() const {
  if (!inRange(textureMode, 0, 4)) return rangeFault("textureMode", textureMode, 4);
  if (!inRange(sequenceMode, 0, 2)) return rangeFault("sequenceMode", sequenceMode, 2);
  for (const std::string& f : fileNames) {
    if (f.empty()) return "an empty file name";
    if (f.find_first_of("/\\") != std::string::npos) return "file name \"" + f + "\" holds a directory";
  }
  return {};
}

MaterialRecord::LayerSlots::LayerSlots(const LayerSlots& other) { *this = other; }

MaterialRecord::LayerSlots& MaterialRecord::LayerSlots::operator=(const LayerSlots& other) {
  if (this != &other)
    for (std::size_t i = 0; i < slots.size(); ++i)
      slots[i] = other.slots[i] ? std::make_unique<TextureRecord>(*other.slots[i]) : nullptr;
  return *this;
}

TextureRecord& MaterialRecord::layer(int i) {
  std::unique_ptr<TextureRecord>& slot = layers_.slots.at(static_cast<std::size_t>(i));
  if (!slot) {
    try {
      slot = std::make_unique<TextureRecord>();
    } catch (const std::bad_alloc&) {
      throw T_MemoryException_Allocation();
    }
  }
  return *slot;
}

int MaterialRecord::presentLayerCount() const {
  int n = 0;
  for (const auto& l : layers_.slots) n += l ? 1 : 0;
  return n;
}

std::string MaterialRecord::validate() const {
  if (!inRange(plainLayerMode, 0, 2)) return rangeFault("plainLayerMode", plainLayerMode, 2);
  if (!inRange(option1, 0, 1)) return rangeFault("option1", option1, 1);
  if (!inRange(layer2Mode, 0, 2)) return rangeFault("layer2Mode", layer2Mode, 2);
  if (!inRange(diffuseMode, 0, 2)) return rangeFault("diffuseMode", diffuseMode, 2);
  if (!inRange(mode2, 0, 2)) return rangeFault("mode2", mode2, 2);
  if (!inRange(maskMode, 0, 1)) return rangeFault("maskMode", maskMode, 1);
  if (!finite(ambient) || !finite(diffuse) || !finite(specular)) return "a colour that is not finite";
  if (!std::isfinite(value1) || !std::isfinite(value2)) return "a value that is not finite";
  for (int i = 0; i < kLayerCount; ++i)
    if (const TextureRecord* texture = presentLayer(i)) {
      const std::string fault = texture->validate();
      if (!fault.empty()) return "layer " + std::to_string(i + 1) + ": " + fault;
    }
  return {};
}

T_MemoryFile& operator<<(T_MemoryFile& file, const TextureRecord& record) {
  checkBeforeWriting(record);
  file.createChunk(chunk_kind::kTexture);
  file << record.name << record.textureValue << record.textureMode;
  file << static_cast<int>(record.fileNames.size());
  for (const std::string& f : record.fileNames) file << f;
  // A still image has no playback settings.
  if (record.fileNames.size() > 1)
    file << record.sequenceSwitch1 << record.sequenceSwitch2 << record.sequenceValue1 << record.sequenceValue2
         << record.sequenceMode;
  file.closeChunk();
  return file;
}

T_MemoryFile& operator<<(T_MemoryFile& file, const MaterialRecord& record) {
  checkBeforeWriting(record);
  file.createChunk(chunk_kind::kMaterial);
  file << record.name << record.switch1 << record.switch2 << record.switch3 << record.switch4 << record.switch5;
  file << record.plainLayerMode << record.option1 << record.layer2Mode;
  file << record.ambient << record.diffuse << record.specular;
  file << record.value1 << record.value2 << record.diffuseMode << record.mode2;
  file << 0.0f;  // kept by the format, carries nothing
  for (int i = 0; i < MaterialRecord::kLayerCount; ++i) {
    const TextureRecord* texture = record.presentLayer(i);
    file << (texture != nullptr);
    if (texture != nullptr) file << *texture;
  }
  file << record.maskMode << record.switch6 << record.switch7 << record.switch8 << record.intValue;
  file.closeChunk();
  return file;
}

T_MemoryFile& operator<<(T_MemoryFile& file, const MaterialListRecord& record) {
  file.createChunk(chunk_kind::kMaterialList);
  file << record.texturePath << static_cast<int>(record.materials.size());
  for (const MaterialRecord& m : record.materials) file << m;
  file.closeChunk();
  return file;
}
