// The material list, its materials and their texture layers.
#include <string>

#include "chunk_layouts.h"
#include "chunk_reader.h"

namespace ztexport {

void decodeMaterialList(ChunkReader& r, DecodedChunk&) {
  r.stringField("texturePath");
  const std::int32_t n = r.intField("materialCount");
  for (std::int32_t i = 0; i < n; ++i) r.nestedChunk();
}

void decodeMaterial(ChunkReader& r, DecodedChunk&) {
  r.stringField("name");
  r.boolField("switch1");
  r.boolField("switch2");
  r.boolField("switch3");
  r.boolField("switch4");
  r.boolField("switch5");
  r.intField("plainLayerMode");
  r.intField("option1");
  r.intField("layer2Mode");
  r.floatsField("ambient", 4);
  r.floatsField("diffuse", 4);
  r.floatsField("specular", 4);
  r.floatField("value1");
  r.floatField("value2");
  r.intField("diffuseMode");
  r.intField("mode2");
  r.floatField("reserved");
  // A texture chunk follows each layer flag that is set.
  static const char* const kLayerFlags[5] = {"layer1Present", "layer2Present", "layer3Present", "layer4Present",
                                             "layer5Present"};
  for (const char* flag : kLayerFlags) {
    const bool present = r.boolField(flag);
    if (present != r.nextIsChunk())
      r.failHere(std::string(flag) + (present ? " is true but no TextureChunk follows it"
                                              : " is false but a TextureChunk follows it"));
    if (present) r.nestedChunk();
  }
  r.intField("maskMode");
  r.boolField("switch6");
  r.boolField("switch7");
  r.boolField("switch8");
  r.intField("intValue");
}

void decodeTexture(ChunkReader& r, DecodedChunk&) {
  r.stringField("name");
  r.intField("textureValue");
  r.intField("textureMode");
  const std::int32_t k = r.intField("fileNameCount");
  r.stringsField("fileNames", k < 0 ? 0 : static_cast<std::size_t>(k));
  // Only an image sequence carries its playback settings.
  if (k > 1) {
    r.boolField("sequenceSwitch1");
    r.boolField("sequenceSwitch2");
    r.intField("sequenceValue1");
    r.intField("sequenceValue2");
    r.intField("sequenceMode");
  }
}

}  // namespace ztexport
