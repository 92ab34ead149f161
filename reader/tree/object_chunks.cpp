// Scene objects that carry the base object chunk (camera, lights, helper),
// the base object chunk itself, and the environment.
#include "chunk_layouts.h"
#include "chunk_reader.h"

namespace ztexport {

void decodeObject(ChunkReader& r, DecodedChunk&) {
  r.stringField("name");
  r.stringField("parentName");
  r.matrixField("transform");
  r.boolField("hasParent");
  r.stringField("userProperties");
}

void decodeCamera(ChunkReader& r, DecodedChunk&) {
  r.nestedChunk();
  r.floatField("fov");
  r.floatField("nearPlane");
  r.floatField("farPlane");
}

// Colour and intensity open every light chunk; the kinds add what they have.
static void decodeLightBase(ChunkReader& r) {
  r.nestedChunk();
  r.floatsField("colour", 4);
  r.floatField("intensity");
}

void decodeOmniLight(ChunkReader& r, DecodedChunk&) {
  decodeLightBase(r);
  r.floatField("attenuationStart");
  r.floatField("attenuationEnd");
}

void decodeDirectionalLight(ChunkReader& r, DecodedChunk&) { decodeLightBase(r); }

void decodeSpotLight(ChunkReader& r, DecodedChunk&) {
  decodeLightBase(r);
  r.floatField("attenuationStart");
  r.floatField("attenuationEnd");
  r.floatField("hotspot");
  r.floatField("falloff");
}

void decodeHelper(ChunkReader& r, DecodedChunk&) {
  r.nestedChunk();
  r.stringField("className");
}

void decodeEnvironment(ChunkReader& r, DecodedChunk&) {
  r.ucharsField("ambientColour", 4);
  r.ucharsField("backgroundColour", 4);
}

}  // namespace ztexport
