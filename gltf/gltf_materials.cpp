// The material list as glTF materials: colours, and the diffuse layer's
// first image as base colour texture, embedded in the .glb.
#include <algorithm>

#include "gltf/gltf_builder.h"
#include "gltf/gltf_images.h"

namespace zt2dump::gltf {

namespace {

std::vector<double> colour01(const Json& c) {
  std::vector<double> r;
  for (int k = 0; k < 3; ++k) r.push_back(std::clamp(number(c.at(k)) / 255.0, 0.0, 1.0));
  return r;
}

// glTF holds PNG and JPEG images only; told by content, not by name.
std::string mimeTypeOf(const std::vector<unsigned char>& bytes) {
  static const unsigned char kPng[] = {0x89, 'P', 'N', 'G'};
  if (bytes.size() > 4 && std::equal(kPng, kPng + 4, bytes.begin())) return "image/png";
  if (bytes.size() > 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff) return "image/jpeg";
  return {};
}

// The texture for a layer's first image, or -1 with a warning.
int addTexture(Builder& b, const std::string& material, const DecodedChunk& texture, const std::string& directory,
               std::map<std::string, int>& textureByFile) {
  const Json& files = texture.at("fileNames");
  if (files.empty()) return -1;
  const std::string file = files[0].get<std::string>();
  if (const auto it = textureByFile.find(file); it != textureByFile.end()) return it->second;
  const std::string path = directory + file;
  std::vector<unsigned char> bytes = imageFileBytes(path);
  const std::string mime = browserImage(path, bytes, mimeTypeOf(bytes));
  if (mime.empty()) {
    b.warn("material \"" + codePageToUtf8(material) + "\": texture \"" + path +
           (bytes.empty() ? "\" not found" : "\" is neither PNG nor JPEG") + "; no base colour texture");
    textureByFile[file] = -1;
    return -1;
  }
  tinygltf::Image image;
  image.name = file;
  image.mimeType = mime;
  image.bufferView = b.addBufferView(bytes.data(), bytes.size(), 0);
  b.model.images.push_back(std::move(image));
  if (b.model.samplers.empty()) {
    tinygltf::Sampler sampler;
    sampler.magFilter = TINYGLTF_TEXTURE_FILTER_LINEAR;
    sampler.minFilter = TINYGLTF_TEXTURE_FILTER_LINEAR_MIPMAP_LINEAR;
    b.model.samplers.push_back(std::move(sampler));
  }
  tinygltf::Texture tex;
  tex.name = file;
  tex.source = static_cast<int>(b.model.images.size() - 1);
  tex.sampler = 0;
  b.model.textures.push_back(std::move(tex));
  const int index = static_cast<int>(b.model.textures.size() - 1);
  textureByFile[file] = index;
  return index;
}

}  // namespace

int materialForName(Builder& b, const std::string& name) {
  for (std::size_t i = 0; i < b.model.materials.size(); ++i)
    if (b.model.materials[i].name == name) return static_cast<int>(i);
  tinygltf::Material m;
  m.name = name;
  m.pbrMetallicRoughness.baseColorFactor = {0.6, 0.6, 0.6, 1.0};
  m.pbrMetallicRoughness.metallicFactor = 0.0;
  m.pbrMetallicRoughness.roughnessFactor = 0.8;
  m.extras = tinygltf::Value(tinygltf::Value::Object{{"inMaterialList", tinygltf::Value(false)}});
  b.model.materials.push_back(std::move(m));
  return static_cast<int>(b.model.materials.size() - 1);
}

int materialWithoutTexture(Builder& b, int material) {
  if (material < 0 || b.model.materials[static_cast<std::size_t>(material)].pbrMetallicRoughness.baseColorTexture.index < 0)
    return material;
  if (const auto it = b.untexturedMaterial.find(material); it != b.untexturedMaterial.end()) return it->second;
  tinygltf::Material copy = b.model.materials[static_cast<std::size_t>(material)];
  copy.pbrMetallicRoughness.baseColorTexture = tinygltf::TextureInfo();
  // The diffuse colour that the image stood in for, kept in the extras on 0..255.
  std::vector<double> base = {0.6, 0.6, 0.6, 1.0};
  if (copy.extras.Has("diffuse") && copy.extras.Get("diffuse").ArrayLen() >= 3)
    for (int k = 0; k < 3; ++k)
      base[static_cast<std::size_t>(k)] =
          std::clamp(copy.extras.Get("diffuse").Get(k).GetNumberAsDouble() / 255.0, 0.0, 1.0);
  copy.pbrMetallicRoughness.baseColorFactor = base;
  b.model.materials.push_back(std::move(copy));
  const int index = static_cast<int>(b.model.materials.size() - 1);
  b.untexturedMaterial[material] = index;
  return index;
}

void addMaterials(Builder& b, const DecodedFile& scene, const std::string& textureDirectory) {
  std::map<std::string, int> textureByFile;
  for (const DecodedChunk& list : scene.chunks) {
    if (!isKind(list, chunk_kind::kMaterialList)) continue;
    for (const DecodedChunk& c : list.children) {
      if (!isKind(c, chunk_kind::kMaterial)) continue;
      tinygltf::Material m;
      m.name = c.at("name").get<std::string>();
      // The first material of a name wins, as a mesh's name lookup finds it.
      if (std::any_of(b.model.materials.begin(), b.model.materials.end(),
                      [&](const tinygltf::Material& o) { return o.name == m.name; }))
        continue;
      std::vector<double> base = colour01(c.at("diffuse"));
      base.push_back(1.0);
      m.pbrMetallicRoughness.metallicFactor = 0.0;
      m.pbrMetallicRoughness.roughnessFactor = 0.8;
      // The k-th texture child belongs to the k-th layer whose flag is set;
      // only the diffuse layer (1) has a glTF place.
      if (c.at("layer1Present").get<bool>() && !c.children.empty() && isKind(c.children[0], chunk_kind::kTexture)) {
        const int tex = addTexture(b, m.name, c.children[0], textureDirectory, textureByFile);
        if (tex >= 0) {
          m.pbrMetallicRoughness.baseColorTexture.index = tex;
          base = {1.0, 1.0, 1.0, 1.0};  // the image is the colour; the diffuse colour stays in extras
        }
      }
      m.pbrMetallicRoughness.baseColorFactor = base;
      tinygltf::Value::Object extras;
      extras["inMaterialList"] = tinygltf::Value(true);
      for (const char* key : {"ambient", "diffuse", "specular"}) {
        tinygltf::Value::Array a;
        for (const Json& v : c.at(key)) a.push_back(tinygltf::Value(number(v)));
        extras[key] = tinygltf::Value(std::move(a));
      }
      tinygltf::Value::Array layers;
      std::size_t child = 0;
      for (const char* flag : {"layer1Present", "layer2Present", "layer3Present", "layer4Present", "layer5Present"}) {
        std::string file;
        if (c.at(flag).get<bool>() && child < c.children.size()) {
          const DecodedChunk& t = c.children[child++];
          if (isKind(t, chunk_kind::kTexture) && !t.at("fileNames").empty())
            file = t.at("fileNames")[0].get<std::string>();
        }
        layers.push_back(tinygltf::Value(file));
      }
      extras["layerFiles"] = tinygltf::Value(std::move(layers));
      m.extras = tinygltf::Value(std::move(extras));
      b.model.materials.push_back(std::move(m));
    }
  }
}

}  // namespace zt2dump::gltf
