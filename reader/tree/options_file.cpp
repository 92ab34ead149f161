#include "options_file.h"

#include "chunk_reader.h"

namespace ztexport {

namespace {

// Values 2 to 20, read by every version.
const char* const kLeadingInts[] = {
    "exportGeometry", "exportAnimation",    "exportCameras", "exportEnvironment",      "exportHelpers",
    "exportLights",   "exportMaterials",    "dumpInfo",      "copyTextures",           "retiredFlag",
    "loop",           "loopInterpolation",  "removeFloatingVertices", "removeHiddenObjects", "rescale",
    "sampleRate",     "sceneFrameRate"};

struct LaterValue {
  std::int32_t sinceVersion;
  const char* name;
  bool isFloat;
};

// Values 23 to 31, each present from the version that added it.
const LaterValue kLaterValues[] = {
    {options_since::kRetainHierarchies, "retainHierarchies", false},
    {options_since::kPositionDelta, "positionDelta", true},
    {options_since::kFrameToFrameInterpolation, "frameToFrameInterpolation", false},
    {options_since::kPivotAsMeshCenter, "pivotAsMeshCenter", false},
    {options_since::kMaintainMatrixScaling, "maintainMatrixScaling", false},
    {options_since::kSaveReferencesOnce, "saveReferencesOnce", false},
    {options_since::kDecreaseEndFrameByOne, "decreaseEndFrameByOne", false},
    {options_since::kUseGlobalAnimationRange, "useGlobalAnimationRange", false},
    {options_since::kExportSkinning, "exportSkinning", false},
};

}  // namespace

void decodeOptionsValues(T_MemoryFile& file, DecodedFile& out) {
  ChunkReader r(file);
  DecodedChunk values;
  r.readLooseValues(values, file.size(), "the options values", "options", [&] {
    const std::int32_t version = r.intField("version");
    out.optionsVersion = version;
    if (version > kOptionsFileVersion) {
      // The exporter ignores such a file; its layout is not known here.
      r.setReading("values of a newer version");
      file.seek(file.size());
      return;
    }
    for (const char* name : kLeadingInts) r.intField(name);
    r.floatField("rotationDelta");
    r.floatField("rescaleFactor");
    const std::int32_t n = r.intField("texturePathCount");
    r.stringsField("texturePathHistory", n < 0 ? 0 : static_cast<std::size_t>(n));
    for (const LaterValue& v : kLaterValues) {
      if (version < v.sinceVersion) continue;
      if (v.isFloat) r.floatField(v.name);
      else r.intField(v.name);
    }
  });
  // The version is reported on its own, not among the option values.
  values.fields.erase(values.fields.begin());
  out.optionsFields = std::move(values.fields);
}

}  // namespace ztexport
