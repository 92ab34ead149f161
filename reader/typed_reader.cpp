// The typed structs of ztexport/reader.h, built from the chunk tree read with
// TreeDetail::Typed: small fields come from the tree's values, large arrays
// are the typed copies the chunk reader made straight from the bytes.
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "format/chunk_kinds.h"
#include "format/memory_file.h"
#include "reader/tree/file_decoder.h"
#include "ztexport/reader.h"

namespace ztexport {

namespace detail {

namespace {

constexpr std::size_t kHuge = std::size_t{2} << 20;

// Blocks given back are kept for the next read, up to this much: a program
// that reads file after file (a converter, a notebook) refills pages it
// already has instead of faulting and zeroing fresh ones, as the C heap
// would do for it. One large model's arrays fit.
constexpr std::size_t kKeptBytes = std::size_t{128} << 20;

struct KeptBlocks {
  std::mutex lock;
  std::vector<std::pair<void*, std::size_t>> blocks;  // start, length (whole huge pages)
  std::size_t bytes = 0;
};

KeptBlocks& kept() {
  static KeptBlocks* blocks = new KeptBlocks;  // never destroyed: arrays may outlive static destruction
  return *blocks;
}

std::size_t wholeHugePages(std::size_t bytes) { return (bytes + kHuge - 1) & ~(kHuge - 1); }

}  // namespace

// Asked for in huge pages where the system gives them on request: filling
// 4 KiB pages one fault at a time costs several times the copy itself (on a
// virtual machine most of all), and a large array is filled whole at once.
void* allocatePages(std::size_t bytes) {
  const std::size_t length = wholeHugePages(bytes);
  {
    KeptBlocks& k = kept();
    const std::lock_guard<std::mutex> guard(k.lock);
    for (std::size_t i = 0; i < k.blocks.size(); ++i)
      if (k.blocks[i].second == length) {
        void* p = k.blocks[i].first;
        k.bytes -= length;
        k.blocks.erase(k.blocks.begin() + static_cast<std::ptrdiff_t>(i));
        return p;
      }
  }
  // Placed on a huge page's boundary, so that every huge page of it can be one.
  const std::size_t span = length + kHuge;
  void* p = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t aligned = (start + kHuge - 1) & ~(kHuge - 1);
  if (aligned > start) ::munmap(p, aligned - start);
  const std::size_t tail = start + span - (aligned + length);
  if (tail > 0) ::munmap(reinterpret_cast<void*>(aligned + length), tail);
  ::madvise(reinterpret_cast<void*>(aligned), length, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(aligned);
}

void freePages(void* p, std::size_t bytes) {
  const std::size_t length = wholeHugePages(bytes);
  {
    KeptBlocks& k = kept();
    const std::lock_guard<std::mutex> guard(k.lock);
    if (k.bytes + length <= kKeptBytes) {
      k.blocks.emplace_back(p, length);
      k.bytes += length;
      return;
    }
  }
  ::munmap(p, length);
}

}  // namespace detail

namespace {

const Json& field(const DecodedChunk& c, const std::string& name) { return c.at(name); }

float floatOf(const Json& v) { return v.is_number() ? v.get<float>() : 0.0f; }

template <typename T>
Array<T> typedOf(const DecodedChunk& c, const char* name) {
  const DecodedField* f = c.find(name);
  if (f == nullptr) return {};
  if (const auto* a = std::get_if<Array<T>>(&f->typed)) return *a;
  return {};
}

std::vector<std::uint32_t> uintsOf(const Json& v) {
  std::vector<std::uint32_t> out;
  out.reserve(v.size());
  for (const Json& e : v) out.push_back(e.get<std::uint32_t>());
  return out;
}

std::vector<std::string> stringsOf(const Json& v) {
  std::vector<std::string> out;
  out.reserve(v.size());
  for (const Json& e : v) out.push_back(e.get<std::string>());
  return out;
}

Matrix4x3 matrixOf(const Json& rows) {
  Matrix4x3 m{};
  for (int r = 0; r < 4; ++r)
    for (int k = 0; k < 3; ++k) m.m[r][k] = floatOf(rows[r][k]);
  return m;
}

Rgba rgbaOf(const Json& v) { return Rgba{floatOf(v[0]), floatOf(v[1]), floatOf(v[2]), floatOf(v[3])}; }

Rgba8 rgba8Of(const Json& v) {
  return Rgba8{v[0].get<std::uint8_t>(), v[1].get<std::uint8_t>(), v[2].get<std::uint8_t>(), v[3].get<std::uint8_t>()};
}

bool is(const DecodedChunk& c, const ChunkKindInfo& kind) { return c.decoded && c.id == kind.id; }

const DecodedChunk* child(const DecodedChunk& c, const ChunkKindInfo& kind) {
  for (const DecodedChunk& k : c.children)
    if (is(k, kind)) return &k;
  return nullptr;
}

Node nodeOf(const DecodedChunk& carrier, std::size_t order) {
  Node n;
  n.offset = carrier.offset;
  n.order = order;
  if (const DecodedChunk* o = child(carrier, chunk_kind::kObject)) {
    n.name = field(*o, "name").get<std::string>();
    n.parentName = field(*o, "parentName").get<std::string>();
    n.transform = matrixOf(field(*o, "transform"));
    n.hasParent = field(*o, "hasParent").get<bool>();
    n.userProperties = field(*o, "userProperties").get<std::string>();
  }
  return n;
}

AnimationHeader headerOf(const DecodedChunk& animation) {
  AnimationHeader h;
  if (const DecodedChunk* c = child(animation, chunk_kind::kAnimationHeader)) {
    h.name = field(*c, "name").get<std::string>();
    h.sampleRate = field(*c, "sampleRate").get<std::int32_t>();
    h.loop = field(*c, "loop").get<bool>();
  }
  return h;
}

Array<FloatKey> floatKeys(const Json& keys) {
  Array<FloatKey> out(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i)
    out[i] = FloatKey{keys[i]["sample"].get<std::uint32_t>(), floatOf(keys[i]["value"])};
  return out;
}

Array<FloatKey> floatKeysIf(const DecodedChunk& c, const char* name) {
  const DecodedField* f = c.find(name);
  return f ? floatKeys(f->value) : Array<FloatKey>();
}

Mesh meshOf(const std::string& path, const DecodedChunk& c, std::size_t order) {
  Mesh m;
  m.node = nodeOf(c, order);
  for (const DecodedChunk& k : c.children) {
    if (is(k, chunk_kind::kMeshVertex)) {
      m.positions = typedOf<Vec3>(k, "positions");
      m.normals = typedOf<Vec3>(k, "normals");
      m.groupVertexCounts = uintsOf(field(k, "groupVertexCounts"));
    } else if (is(k, chunk_kind::kMeshFace)) {
      const Array<std::uint16_t> indices = typedOf<std::uint16_t>(k, "indices");
      if (indices.size() % 3 != 0) {
        const std::size_t at = k.find("indices")->offset;
        throw FormatError(FormatError::Kind::Corrupt, path,
                          path + ": indexCount " + std::to_string(indices.size()) +
                              " is not a multiple of 3 at byte offset " + std::to_string(at) + " (" + chunkLabel(c) +
                              ")",
                          at, chunkLabel(c) + " > MeshFaceChunk > indices");
      }
      // A triangle is three 16-bit indices as they stand in the file: the
      // triangles are the decoded indices themselves, not a copy of them.
      static_assert(sizeof(Triangle) == 3 * sizeof(std::uint16_t) && alignof(Triangle) == alignof(std::uint16_t));
      if (!indices.empty())
        m.triangles = Array<Triangle>(
            std::shared_ptr<Triangle[]>(indices.storage(), reinterpret_cast<Triangle*>(indices.storage().get())),
            indices.size() / 3);
      m.groupTriangleCounts = uintsOf(field(k, "groupTriangleCounts"));
    } else if (is(k, chunk_kind::kMeshReserved)) {
      m.reserved = uintsOf(field(k, "values"));
    } else if (is(k, chunk_kind::kMeshMaterialNames)) {
      m.materialNames = stringsOf(field(k, "names"));
    } else if (is(k, chunk_kind::kMeshMapChannel)) {
      MapChannel ch;
      ch.channel = field(k, "channel").get<std::uint32_t>();
      ch.coordinates = typedOf<Vec3>(k, "coordinates");
      ch.groupCounts = uintsOf(field(k, "groupCoordinateCounts"));
      m.mapChannels.push_back(std::move(ch));
    } else if (is(k, chunk_kind::kMeshReference)) {
      m.referenceName = field(k, "referenceName").get<std::string>();
    }
  }
  return m;
}

Texture textureOf(const DecodedChunk& c) {
  Texture t;
  t.name = field(c, "name").get<std::string>();
  t.textureValue = field(c, "textureValue").get<std::int32_t>();
  t.textureMode = field(c, "textureMode").get<std::int32_t>();
  t.fileNames = stringsOf(field(c, "fileNames"));
  if (c.find("sequenceMode")) {
    t.sequenceSwitch1 = field(c, "sequenceSwitch1").get<bool>();
    t.sequenceSwitch2 = field(c, "sequenceSwitch2").get<bool>();
    t.sequenceValue1 = field(c, "sequenceValue1").get<std::int32_t>();
    t.sequenceValue2 = field(c, "sequenceValue2").get<std::int32_t>();
    t.sequenceMode = field(c, "sequenceMode").get<std::int32_t>();
  }
  return t;
}

Material materialOf(const DecodedChunk& c) {
  Material m;
  auto b = [&](const char* n) { return field(c, n).get<bool>(); };
  auto i = [&](const char* n) { return field(c, n).get<std::int32_t>(); };
  m.name = field(c, "name").get<std::string>();
  m.switch1 = b("switch1");
  m.switch2 = b("switch2");
  m.switch3 = b("switch3");
  m.switch4 = b("switch4");
  m.switch5 = b("switch5");
  m.plainLayerMode = i("plainLayerMode");
  m.option1 = i("option1");
  m.layer2Mode = i("layer2Mode");
  m.ambient = rgbaOf(field(c, "ambient"));
  m.diffuse = rgbaOf(field(c, "diffuse"));
  m.specular = rgbaOf(field(c, "specular"));
  m.value1 = floatOf(field(c, "value1"));
  m.value2 = floatOf(field(c, "value2"));
  m.diffuseMode = i("diffuseMode");
  m.mode2 = i("mode2");
  m.reserved = floatOf(field(c, "reserved"));
  // The textures are the children, one per layer whose flag is set.
  std::size_t next = 0;
  for (int layer = 0; layer < 5; ++layer) {
    const std::string flag = "layer" + std::to_string(layer + 1) + "Present";
    if (!field(c, flag).get<bool>() || next >= c.children.size()) continue;
    const DecodedChunk& t = c.children[next++];
    if (is(t, chunk_kind::kTexture)) m.layers[layer] = textureOf(t);
  }
  m.maskMode = i("maskMode");
  m.switch6 = b("switch6");
  m.switch7 = b("switch7");
  m.switch8 = b("switch8");
  m.intValue = i("intValue");
  return m;
}

Light lightOf(const DecodedChunk& c, LightType type, std::size_t order) {
  Light l;
  l.type = type;
  l.node = nodeOf(c, order);
  l.colour = rgbaOf(field(c, "colour"));
  l.intensity = floatOf(field(c, "intensity"));
  if (type != LightType::Directional) {
    l.attenuationStart = floatOf(field(c, "attenuationStart"));
    l.attenuationEnd = floatOf(field(c, "attenuationEnd"));
  }
  if (type == LightType::Spot) {
    l.hotspot = floatOf(field(c, "hotspot"));
    l.falloff = floatOf(field(c, "falloff"));
  }
  return l;
}

TransformAnimation transformAnimationOf(const DecodedChunk& c, std::size_t order) {
  TransformAnimation a;
  a.header = headerOf(c);
  a.order = order;
  a.parentName = field(c, "parentName").get<std::string>();
  a.loopInterpolation = field(c, "loopInterpolation").get<bool>();
  a.numSamples = field(c, "numSamples").get<std::uint32_t>();
  const Json& keys = field(c, "keys");
  a.keys = Array<TransformKey>(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i)
    a.keys[i] = TransformKey{keys[i]["sample"].get<std::uint32_t>(), matrixOf(keys[i]["transform"])};
  a.visibilityKeys = floatKeys(field(c, "visibilityKeys"));
  a.loopToFrame = field(c, "loopToFrame").get<std::uint32_t>();
  a.frameToFrameInterpolation = field(c, "frameToFrameInterpolation").get<std::int32_t>();
  a.maintainMatrixScaling = field(c, "maintainMatrixScaling").get<bool>();
  return a;
}

LightAnimation lightAnimationOf(const DecodedChunk& c, LightType type, std::size_t order) {
  LightAnimation a;
  a.type = type;
  a.header = headerOf(c);
  a.order = order;
  a.numSamples = field(c, "numSamples").get<std::int32_t>();
  a.loopInterpolation = field(c, "loopInterpolation").get<bool>();
  const Json& colours = field(c, "colourKeys");
  a.colourKeys = Array<ColourKey>(colours.size());
  for (std::size_t i = 0; i < colours.size(); ++i)
    a.colourKeys[i] = ColourKey{colours[i]["sample"].get<std::uint32_t>(), rgbaOf(colours[i]["colour"])};
  a.intensityKeys = floatKeysIf(c, "intensityKeys");
  a.attenuationStartKeys = floatKeysIf(c, "attenuationStartKeys");
  a.attenuationEndKeys = floatKeysIf(c, "attenuationEndKeys");
  a.hotspotKeys = floatKeysIf(c, "hotspotKeys");
  a.falloffKeys = floatKeysIf(c, "falloffKeys");
  a.loopToFrame = field(c, "loopToFrame").get<std::uint32_t>();
  return a;
}

const char* withArticle(FileKind kind) {
  switch (kind) {
    case FileKind::Scene: return "a scene";
    case FileKind::VertexData: return "a per-vertex";
    case FileKind::Options: return "an options";
  }
  return "a scene";
}

DecodedFile decodeAs(const std::string& name, FileBytes bytes, FileKind wanted) {
  DecodedFile file = decodeBytes(name, std::move(bytes), TreeDetail::Typed);
  if (file.kind != wanted)
    throw FormatError(FormatError::Kind::WrongKind, name,
                      name + ": " + withArticle(file.kind) + " file, not " + withArticle(wanted) + " file");
  return file;
}

}  // namespace

Scene sceneFromTree(const DecodedFile& file) {
  Scene s;
  s.path = file.path;
  s.size = file.size;
  for (std::size_t order = 0; order < file.chunks.size(); ++order) {
    const DecodedChunk& c = file.chunks[order];
    if (!c.decoded) {
      s.skipped.push_back(SkippedChunk{c.id, c.version, c.offset, c.name});
      continue;
    }
    const std::uint32_t id = c.id;
    if (id == chunk_kind::kMesh.id) s.meshes.push_back(meshOf(file.path, c, order));
    else if (id == chunk_kind::kCamera.id) {
      Camera cam;
      cam.node = nodeOf(c, order);
      cam.fov = floatOf(field(c, "fov"));
      cam.nearPlane = floatOf(field(c, "nearPlane"));
      cam.farPlane = floatOf(field(c, "farPlane"));
      s.cameras.push_back(std::move(cam));
    } else if (id == chunk_kind::kOmniLight.id) s.lights.push_back(lightOf(c, LightType::Omni, order));
    else if (id == chunk_kind::kDirectionalLight.id) s.lights.push_back(lightOf(c, LightType::Directional, order));
    else if (id == chunk_kind::kSpotLight.id) s.lights.push_back(lightOf(c, LightType::Spot, order));
    else if (id == chunk_kind::kHelper.id) s.helpers.push_back(Helper{nodeOf(c, order), field(c, "className").get<std::string>()});
    else if (id == chunk_kind::kEnvironment.id)
      s.environment = Environment{rgba8Of(field(c, "ambientColour")), rgba8Of(field(c, "backgroundColour"))};
    else if (id == chunk_kind::kMaterialList.id) {
      MaterialList list;
      list.texturePath = field(c, "texturePath").get<std::string>();
      for (const DecodedChunk& m : c.children)
        if (is(m, chunk_kind::kMaterial)) list.materials.push_back(materialOf(m));
      s.materials = std::move(list);
    } else if (id == chunk_kind::kTransformAnimation.id) s.transformAnimations.push_back(transformAnimationOf(c, order));
    else if (id == chunk_kind::kOmniLightAnimation.id)
      s.lightAnimations.push_back(lightAnimationOf(c, LightType::Omni, order));
    else if (id == chunk_kind::kDirectionalLightAnimation.id)
      s.lightAnimations.push_back(lightAnimationOf(c, LightType::Directional, order));
    else if (id == chunk_kind::kSpotLightAnimation.id)
      s.lightAnimations.push_back(lightAnimationOf(c, LightType::Spot, order));
    // Sub-chunk kinds at the top level belong to no object: nothing to show.
  }
  return s;
}

SkinData skinFromTree(const DecodedFile& file) {
  SkinData d;
  d.path = file.path;
  for (const DecodedChunk& c : file.chunks) {
    if (!is(c, chunk_kind::kVertexData)) continue;
    d.nodeNames = stringsOf(field(c, "nodeNames"));
    d.boneNames = stringsOf(field(c, "boneNames"));
    d.influenceStart = typedOf<std::int32_t>(c, "influenceStart");
    d.influenceCount = typedOf<std::int32_t>(c, "influenceCount");
    d.influenceBone = typedOf<std::int32_t>(c, "influenceBone");
    d.influenceWeight = typedOf<float>(c, "influenceWeight");
    const Array<std::uint32_t> counts = typedOf<std::uint32_t>(c, "groupVertexCount");
    const Array<std::uint32_t> starts = typedOf<std::uint32_t>(c, "groupVertexStart");
    d.groupVertexCount.assign(counts.begin(), counts.end());
    d.groupVertexStart.assign(starts.begin(), starts.end());
    return d;
  }
  throw FormatError(FormatError::Kind::Corrupt, file.path, file.path + ": no VertexDataChunk of a version this reader knows");
}

Options optionsFromTree(const DecodedFile& file) {
  Options o;
  o.path = file.path;
  o.version = file.optionsVersion;
  o.newerVersion = file.optionsVersion > kOptionsFileVersion;
  for (const DecodedField& f : file.optionsFields) {
    OptionValue v;
    v.name = f.name;
    if (f.value.is_array()) {
      v.type = OptionValue::Type::Strings;
      v.strings = stringsOf(f.value);
    } else if (f.value.is_number_float()) {
      v.type = OptionValue::Type::Float;
      v.floatValue = f.value.get<float>();
    } else {
      v.intValue = f.value.get<std::int32_t>();
    }
    o.values.push_back(std::move(v));
  }
  return o;
}

std::vector<MeshGroup> Mesh::groups() const {
  const std::size_t n = std::max({groupVertexCounts.size(), groupTriangleCounts.size(), materialNames.size()});
  std::vector<MeshGroup> out(n);
  std::uint32_t vertex = 0, triangle = 0;
  for (std::size_t g = 0; g < n; ++g) {
    MeshGroup& group = out[g];
    if (g < materialNames.size()) group.material = materialNames[g];
    group.firstVertex = vertex;
    group.vertexCount = g < groupVertexCounts.size() ? groupVertexCounts[g] : 0;
    group.firstTriangle = triangle;
    group.triangleCount = g < groupTriangleCounts.size() ? groupTriangleCounts[g] : 0;
    vertex += group.vertexCount;
    triangle += group.triangleCount;
  }
  return out;
}

std::vector<const Node*> Scene::nodes() const {
  std::vector<const Node*> out;
  for (const Mesh& m : meshes) out.push_back(&m.node);
  for (const Camera& c : cameras) out.push_back(&c.node);
  for (const Light& l : lights) out.push_back(&l.node);
  for (const Helper& h : helpers) out.push_back(&h.node);
  std::sort(out.begin(), out.end(), [](const Node* a, const Node* b) { return a->order < b->order; });
  return out;
}

const Node* Scene::findNode(const std::string& name) const {
  for (const Node* n : nodes())
    if (n->name == name) return n;
  return nullptr;
}

const OptionValue* Options::find(const std::string& name) const {
  for (const OptionValue& v : values)
    if (v.name == name) return &v;
  return nullptr;
}

Scene decodeScene(const std::string& name, std::vector<std::uint8_t> bytes) {
  return sceneFromTree(decodeAs(name, FileBytes::of(std::move(bytes)), FileKind::Scene));
}

SkinData decodeSkin(const std::string& name, std::vector<std::uint8_t> bytes) {
  return skinFromTree(decodeAs(name, FileBytes::of(std::move(bytes)), FileKind::VertexData));
}

Options decodeOptions(const std::string& name, std::vector<std::uint8_t> bytes) {
  return optionsFromTree(decodeAs(name, FileBytes::of(std::move(bytes)), FileKind::Options));
}

// Whole reads map the file: the chunk reader's typed copies are the only copy.
Scene readScene(const std::string& path) { return sceneFromTree(decodeAs(path, mapFileBytes(path), FileKind::Scene)); }
SkinData readSkin(const std::string& path) {
  return skinFromTree(decodeAs(path, mapFileBytes(path), FileKind::VertexData));
}
Options readOptions(const std::string& path) {
  return optionsFromTree(decodeAs(path, mapFileBytes(path), FileKind::Options));
}

// The kind is told by the header and the first value's tag and id.
FileKind readFileKind(const std::string& path) {
  return detectFileKind(path, readFileBytes(path, kMemoryFileHeaderSize + 5));
}

}  // namespace ztexport
