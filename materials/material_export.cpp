#include "materials/material_export.h"

#include <set>

#include "host/material.h"
#include "materials/material_records.h"
#include "materials/texture_export.h"
#include "materials/zt_plugin_params.h"
#include "plugin/scene_exporter.h"

namespace {

// Record layer i (0-based) and the material's sub-texture slot it reads.
constexpr int kLayerSlots[MaterialRecord::kLayerCount] = {0, 2, 3, 1, 4};
constexpr int kLayer2 = 1;

MaterialColor toMaterialColor(const Color& c) { return {c.r * 255.0f, c.g * 255.0f, c.b * 255.0f, 255.0f}; }

bool within(int v, int high) { return v >= 0 && v <= high; }

void convertLayer(SceneExporter& exporter, const Mtl& m, const ZTMaterialParams& p, int layer,
                  MaterialRecord& record) {
  if (!p.layerFlags[static_cast<std::size_t>(layer)]) return;
  const Texmap* map = m.GetSubTexmap(kLayerSlots[layer]);
  if (map == nullptr) return;  // a set flag over an empty slot is no problem
  if (map->ClassID() != ZTTEXTURE_CLASS_ID) {
    exporter.logError("ERROR: Texture \"%s\" not a ZTTexture.", map->GetName().c_str());
    return;
  }
  exportTexture(exporter, record.layer(layer), *map);
}

void convertMaterial(SceneExporter& exporter, const Mtl& m, MaterialRecord& r) {
  const ZTMaterialParams p = readZTMaterialParams(m);
  r.name = m.GetName();
  r.switch1 = p.flags[0];
  r.switch2 = p.flags[1];
  r.switch3 = p.flags[2];
  r.switch4 = p.flags[4];  // the fourth and fifth flags change places in the record
  r.switch5 = p.flags[3];
  r.value1 = p.value1;
  if (within(p.diffuseMode, 2)) r.diffuseMode = p.diffuseMode;
  if (within(p.mode2, 2)) r.mode2 = p.mode2;
  r.ambient = toMaterialColor(m.GetAmbient());
  r.diffuse = toMaterialColor(m.GetDiffuse());
  r.specular = toMaterialColor(m.GetSpecular());
  if (within(p.plainLayerMode, 2)) r.plainLayerMode = p.plainLayerMode;
  if (within(p.option1, 1)) r.option1 = p.option1;
  r.value2 = p.value2;

  for (int layer = 0; layer < MaterialRecord::kLayerCount; ++layer) {
    convertLayer(exporter, m, p, layer, r);
    if (layer == kLayer2 && p.layerFlags[kLayer2]) {
      if (within(p.layer2Mode, 2)) r.layer2Mode = p.layer2Mode;
      r.switch6 = p.layer2ExtraFlag;
    }
    if (layer == MaterialRecord::kMaskLayer && p.layerFlags[MaterialRecord::kMaskLayer] && within(p.maskMode, 1))
      r.maskMode = p.maskMode;
  }
  r.switch7 = p.flags[5];
  r.switch8 = p.flags[6];
  r.intValue = p.intValue;
}

}  // namespace

std::string textureCopyDirectoryFor(const std::string& targetPath, const std::string& texturePath) {
  return targetPath + texturePath.substr(0, texturePath.find(';'));
}

bool texturePathLeavesDirectory(const std::string& texturePath) {
  const std::string copyPart = texturePath.substr(0, texturePath.find(';'));
  int depth = 0;
  std::size_t start = 0;
  while (start <= copyPart.size()) {
    std::size_t end = copyPart.find_first_of("/\\", start);
    if (end == std::string::npos) end = copyPart.size();
    const std::string part = copyPart.substr(start, end - start);
    if (part == "..") {
      if (--depth < 0) return true;
    } else if (!part.empty() && part != ".") {
      ++depth;
    }
    start = end + 1;
  }
  return false;
}

void exportMaterials(SceneExporter& exporter) {
  const std::vector<Mtl*>& materials = exporter.materialIndexTable.materials();
  if (materials.empty()) return;

  // Every material takes part, whatever its class: meshes name them all.
  std::set<std::string> names;
  for (const Mtl* m : materials)
    if (!names.insert(m->GetName()).second)
      exporter.logError("ERROR: Materials should have a unique name: material \"%s\" already defined.",
                        m->GetName().c_str());

  MaterialListRecord list;
  list.texturePath = exporter.options.texturePath;
  list.materials.resize(materials.size());
  exporter.copiedTextureSet.clear();
  exporter.textureDirectory = OutputDirectory();
  exporter.stagedCopyLines.clear();
  if (exporter.options.copyTextures) {
    exporter.textureCopyDirectory = textureCopyDirectoryFor(exporter.writtenPath, exporter.options.texturePath);
    if (exporter.options.texturePath.find('\0') != std::string::npos) {
      // The system would take the path only up to the NUL: another folder.
      exporter.logError("ERROR: Texture path \"%s\" holds a NUL byte; textures cannot be copied there.",
                        exporter.options.texturePath.c_str());
      exporter.options.copyTextures = false;
    } else if (texturePathLeavesDirectory(exporter.options.texturePath) && !exporter.host->TextureCopiesOutsideAllowed()) {
      exporter.logError("ERROR: Texture path \"%s\" leads out of the directory of the exported file; textures are "
                        "copied there only when the host allows it.",
                        exporter.options.texturePath.c_str());
      exporter.options.copyTextures = false;  // the export has failed: nothing more to copy
    }
  }

  for (std::size_t i = 0; i < materials.size(); ++i) {
    const Mtl& m = *materials[i];
    MaterialRecord record;
    if (m.ClassID() != ZTMATERIAL_CLASS_ID) {
      exporter.logError("ERROR: Material \"%s\" not a ZTMaterial.", m.GetName().c_str());
    } else {
      convertMaterial(exporter, m, record);
      if (record.plainLayerMode == 0 && record.presentLayerCount() == 0)
        exporter.logError("ERROR: Material \"%s\" hasn't got any visible layers.", record.name.c_str());
      if (record.hasLayer(MaterialRecord::kMaskLayer) && record.hasLayer(MaterialRecord::kDiffuseLayer) &&
          record.diffuseMode == 0)
        exporter.logError(
            "ERROR: Material \"%s\" has got mask layer, so diffuse cannot be copy(see ZT2.0 documentation)",
            record.name.c_str());
    }
    list.materials[i] = std::move(record);
  }
  exporter.sceneFile << list;
}
