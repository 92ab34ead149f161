// The glTF conversion as a whole: finding the files, putting the parts
// together, and writing the .glb.
#include "gltf/gltf_export.h"

#include <sstream>
#include <stdexcept>

#include "dump/dump_error.h"
#include "format/code_page.h"
#include "dump/reader_tree.h"
#include "gltf/gltf_builder.h"
#include "host/inhouse/exceptions.h"
#include "host/inhouse/text.h"

// The WebAssembly build for zt2view's page converts files in memory and has
// no file system: loading and writing files are left out of it.
#ifndef ZTX_NO_FILE_SYSTEM
#include <filesystem>

#include "format/output_files.h"
#endif

namespace zt2dump {

namespace {

// Names are bytes in the host's code page; glTF's are UTF-8, decoded from it
// as in zt2dump's other outputs. The tree keeps the bytes until here: they
// name the image files to look for.
std::string utf8(const std::string& s) { return codePageToUtf8(s); }

void makeUtf8(tinygltf::Value& v) {
  if (v.IsString()) {
    v = tinygltf::Value(utf8(v.Get<std::string>()));
  } else if (v.IsArray()) {
    for (tinygltf::Value& e : v.Get<tinygltf::Value::Array>()) makeUtf8(e);
  } else if (v.IsObject()) {
    for (auto& [key, e] : v.Get<tinygltf::Value::Object>()) makeUtf8(e);
  }
}

template <class T>
void makeUtf8(std::vector<T>& items) {
  for (T& item : items) {
    item.name = utf8(item.name);
    makeUtf8(item.extras);
  }
}

void makeUtf8(tinygltf::Model& m) {
  makeUtf8(m.nodes);
  makeUtf8(m.meshes);
  makeUtf8(m.materials);
  makeUtf8(m.images);
  makeUtf8(m.textures);
  makeUtf8(m.skins);
  makeUtf8(m.cameras);
  makeUtf8(m.lights);
  makeUtf8(m.animations);
  makeUtf8(m.scenes);
}

void requireKind(const DecodedFile& file, FileKind kind, const char* kindText) {
  if (file.kind != kind)
    raiseError(DumpError(file.path + ": a " + fileKindName(file.kind) + " file, not a " + kindText + " file"));
}

// The copied textures lie in the scene's directory followed directly by
// the texture path cut before its first ';', as the exporter copies them.
std::string textureDirectory(const DecodedFile& scene, std::string directory) {
  for (const DecodedChunk& c : scene.chunks)
    if (gltf::isKind(c, chunk_kind::kMaterialList)) {
      std::string texturePath = c.at("texturePath").get<std::string>();
      texturePath = texturePath.substr(0, texturePath.find(';'));
      for (char& ch : texturePath)
        if (ch == '\\') ch = '/';
      directory += texturePath;
      if (!directory.empty() && directory.back() != '/') directory += '/';
      break;
    }
  return directory;
}

}  // namespace

#ifndef ZTX_NO_FILE_SYSTEM
GltfSource loadGltfSource(const std::string& scenePath) {
  GltfSource source;
  source.scene = loadFile(scenePath);
  requireKind(source.scene, FileKind::Scene, "scene");
  const std::filesystem::path path(scenePath);
  std::filesystem::path skd = path;
  skd.replace_extension(".skd");
  std::error_code ec;
  if (std::filesystem::is_regular_file(skd, ec)) {
    source.vertexData = loadFile(skd.string());
    requireKind(*source.vertexData, FileKind::VertexData, "per-vertex");
  }
  std::string directory = path.parent_path().string();
  if (!directory.empty()) directory += '/';
  source.textureDirectory = textureDirectory(source.scene, directory);
  return source;
}
#endif

GltfSource decodeGltfSource(const std::string& sceneName, ztexport::FileBytes scene, const std::string& vertexDataName,
                            std::optional<ztexport::FileBytes> vertexData) {
  GltfSource source;
  source.scene = decodeBytes(sceneName, std::move(scene));
  requireKind(source.scene, FileKind::Scene, "scene");
  if (vertexData) {
    source.vertexData = decodeBytes(vertexDataName, std::move(*vertexData));
    requireKind(*source.vertexData, FileKind::VertexData, "per-vertex");
  }
  source.textureDirectory = textureDirectory(source.scene, "");
  return source;
}

tinygltf::Model buildGltf(const GltfSource& source, std::vector<std::string>& warnings) {
  if (source.scene.kind != FileKind::Scene) raiseError(DumpError(source.scene.path + ": not a scene file"));
  gltf::Builder b(warnings);
  const auto addParts = [&] {
    gltf::addMaterials(b, source.scene, source.textureDirectory);
    gltf::addNodes(b, source.scene);
    gltf::addMeshes(b, source.scene, source.vertexData ? &*source.vertexData : nullptr);
    gltf::addAnimations(b, source.scene);
  };
#ifdef __cpp_exceptions
  try {
    addParts();
  } catch (const nlohmann::json::exception& e) {
    // The decoders give every known chunk its whole layout; a field of the
    // wrong kind can only come from a decoder and converter out of step.
    throw DumpError(source.scene.path + ": cannot convert: " + e.what());
  }
#else
  addParts();  // the JSON library's message stops the module as it is
#endif

  tinygltf::Scene scene;
  scene.name = ztext::fileStem(source.scene.path);
  for (std::size_t n = 0; n < b.model.nodes.size(); ++n)
    if (b.nodeParent[n] < 0) scene.nodes.push_back(static_cast<int>(n));
  tinygltf::Value::Object extras;
  for (const DecodedChunk& c : source.scene.chunks)
    if (gltf::isKind(c, chunk_kind::kEnvironment))
      for (const char* key : {"ambientColour", "backgroundColour"}) {
        tinygltf::Value::Array a;
        for (const Json& v : c.at(key)) a.push_back(tinygltf::Value(v.get<int>()));
        extras[key] = tinygltf::Value(std::move(a));
      }
  scene.extras = tinygltf::Value(std::move(extras));
  b.model.scenes.push_back(std::move(scene));
  b.model.defaultScene = 0;
  b.finish();
  makeUtf8(b.model);
  return std::move(b.model);
}

std::vector<std::uint8_t> glbBytes(const tinygltf::Model& model) {
  std::ostringstream out;
  tinygltf::TinyGLTF writer;
  if (!writer.WriteGltfSceneToStream(&model, out, false, true)) raiseError(std::runtime_error("cannot write glTF"));
  const std::string s = out.str();
  return std::vector<std::uint8_t>(s.begin(), s.end());
}

#ifndef ZTX_NO_FILE_SYSTEM
void writeFileWhole(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  if (const Result<void> written = replaceFileContents(path, {ByteRange{bytes.data(), bytes.size()}}); !written)
    raiseError(UnwritableFile(path + ": cannot write the file: " + written.error().message));
}
#endif

}  // namespace zt2dump
