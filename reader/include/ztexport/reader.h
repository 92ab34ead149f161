// The ZTExport reader: decodes every file the exporter writes (the scene file
// .zt2, the per-vertex skin file .skd, the options file ZTExport.cfg) into
// plain structs. Field names are those of docs/zt2-format.md; docs/reader.md
// shows the API with examples.
//
// Large arrays (positions, normals, mapping coordinates, triangles, keys,
// skin influences) are ztexport::Array: contiguous, typed, copied straight
// from the file's bytes. Every count is checked against the bytes that remain
// before anything is allocated for it. Every failure is a FormatError.
//
// Strings (names, file names, paths) hold the file's bytes: the host's code
// page, Windows-1252. Messages decode them into UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ztexport/array.h"

namespace ztexport {

// ---------------------------------------------------------------- errors

// The one exception of the reader. what() is one line for the user:
// "scene.zt2: unexpected end of chunk body while reading a float at byte
// offset 1234 (reading positions inside MeshVertexChunk at offset 1100, in
// MeshChunk at offset 900)".
class FormatError : public std::runtime_error {
 public:
  enum class Kind {
    Unreadable,  // missing, not a regular file, cannot be opened or read
    Corrupt,     // the bytes do not follow the format (truncated, bad tag, bad count...)
    WrongKind,   // a good file of another kind than the one asked for
  };

  FormatError(Kind kind, std::string path, const std::string& message, std::size_t offset = 0,
              std::string chunkPath = {}, int systemError = 0)
      : std::runtime_error(message), kind_(kind), path_(std::move(path)), offset_(offset),
        chunkPath_(std::move(chunkPath)), systemError_(systemError) {}

  Kind kind() const { return kind_; }
  bool unreadable() const { return kind_ == Kind::Unreadable; }
  // The file as it was named to the reader.
  const std::string& path() const { return path_; }
  // Byte offset of the fault from the start of the file (header included); 0
  // when the file could not be read at all.
  std::size_t offset() const { return offset_; }
  // Where in the chunk tree: `MeshChunk "Character" > MeshVertexChunk > positions`;
  // empty outside any chunk (the file header). Names in it, as in what(), are
  // decoded from the host's code page into UTF-8.
  const std::string& chunkPath() const { return chunkPath_; }
  // For an unreadable file, the system's error number (ENOENT for a missing
  // file, EISDIR for a folder, EINVAL for a name holding a NUL); 0 when the
  // system gave none.
  int systemError() const { return systemError_; }

 private:
  Kind kind_;
  std::string path_;
  std::size_t offset_;
  std::string chunkPath_;
  int systemError_;
};

// ---------------------------------------------------------------- values

enum class FileKind { Scene, VertexData, Options };

// "scene", "vertexData", "options": as zt2dump names them.
const char* fileKindName(FileKind kind);

struct Vec3 {
  float x, y, z;
};

// Three vertex indices of one triangle, 16-bit as in the file and local to
// the triangle's material group (see Mesh::groups()).
struct Triangle {
  std::uint16_t a, b, c;
};

// 4 x 3, row-vector convention: rows 0..2 the axes, row 3 the translation.
struct Matrix4x3 {
  float m[4][3];
};

// Red, green, blue, alpha. Light colours are on a 0..255 scale.
struct Rgba {
  float r, g, b, a;
};

struct Rgba8 {
  std::uint8_t r, g, b, a;
};

static_assert(sizeof(Vec3) == 12 && sizeof(Triangle) == 6 && sizeof(Matrix4x3) == 48,
              "the arrays are copied from the file's bytes as they stand");

// ---------------------------------------------------------------- scene

// The base data of every scene object (the ObjectChunk).
struct Node {
  std::string name;
  std::string parentName;  // empty at the root
  bool hasParent = false;
  Matrix4x3 transform{};   // relative to the parent
  std::string userProperties;
  std::size_t offset = 0;  // file offset of the object's top-level chunk
  std::size_t order = 0;   // position among the file's top-level chunks
};

struct MapChannel {
  std::uint32_t channel = 0;   // the host's channel number
  Array<Vec3> coordinates;     // (u, -v, 0) per vertex
  std::vector<std::uint32_t> groupCounts;
};

// One material group of a mesh, with its starts worked out from the counts.
struct MeshGroup {
  std::string material;  // empty when the mesh has no material names
  std::uint32_t firstVertex = 0, vertexCount = 0;
  std::uint32_t firstTriangle = 0, triangleCount = 0;
};

struct Mesh {
  Node node;
  Array<Vec3> positions;
  Array<Vec3> normals;     // unit length, or (0, 0, 0)
  Array<Triangle> triangles;
  std::vector<std::uint32_t> groupVertexCounts;
  std::vector<std::uint32_t> groupTriangleCounts;
  std::vector<std::string> materialNames;  // one per group
  std::vector<MapChannel> mapChannels;     // texture coordinates and vertex colours, slot order
  // The node whose mesh this one shares (MeshReferenceChunk), when written.
  std::optional<std::string> referenceName;
  std::vector<std::uint32_t> reserved;     // MeshReservedChunk's values (written by no exporter)

  // The groups with their starts; a triangle's vertex is firstVertex + index.
  std::vector<MeshGroup> groups() const;
};

struct Camera {
  Node node;
  float fov = 0;        // radians
  float nearPlane = 0, farPlane = 0;
};

enum class LightType { Omni, Directional, Spot };

struct Light {
  LightType type = LightType::Omni;
  Node node;
  Rgba colour{};
  float intensity = 0;
  float attenuationStart = 0, attenuationEnd = 0;  // omni and spot
  float hotspot = 0, falloff = 0;                  // spot
};

struct Helper {
  Node node;
  std::string className;
};

struct Environment {
  Rgba8 ambientColour{};
  Rgba8 backgroundColour{};
};

struct Texture {
  std::string name;
  std::int32_t textureValue = 0, textureMode = 0;
  std::vector<std::string> fileNames;  // more than one: an image sequence
  // Playback settings, written only for an image sequence.
  bool sequenceSwitch1 = false, sequenceSwitch2 = false;
  std::int32_t sequenceValue1 = 0, sequenceValue2 = 0, sequenceMode = 0;
};

struct Material {
  std::string name;
  bool switch1 = false, switch2 = false, switch3 = false, switch4 = false, switch5 = false;
  std::int32_t plainLayerMode = 0, option1 = 0, layer2Mode = 0;
  Rgba ambient{}, diffuse{}, specular{};
  float value1 = 0, value2 = 0;
  std::int32_t diffuseMode = 0, mode2 = 0;
  float reserved = 0;
  std::optional<Texture> layers[5];  // layer 1 to 5
  std::int32_t maskMode = 0;
  bool switch6 = false, switch7 = false, switch8 = false;
  std::int32_t intValue = 0;
};

struct MaterialList {
  std::string texturePath;
  std::vector<Material> materials;  // in material index order
};

struct AnimationHeader {
  std::string name;        // the animated node
  std::int32_t sampleRate = 0;  // samples per second
  bool loop = false;
};

struct TransformKey {
  std::uint32_t sample;
  Matrix4x3 transform;
};

struct FloatKey {
  std::uint32_t sample;
  float value;
};

struct ColourKey {
  std::uint32_t sample;
  Rgba colour;
};

struct TransformAnimation {
  AnimationHeader header;
  std::string parentName;
  bool loopInterpolation = false;
  std::uint32_t numSamples = 0;
  Array<TransformKey> keys;
  Array<FloatKey> visibilityKeys;
  std::uint32_t loopToFrame = 0;
  std::int32_t frameToFrameInterpolation = 0;
  bool maintainMatrixScaling = false;
  std::size_t order = 0;  // position among the file's top-level chunks
};

struct LightAnimation {
  LightType type = LightType::Omni;
  AnimationHeader header;
  std::int32_t numSamples = 0;
  bool loopInterpolation = false;
  Array<ColourKey> colourKeys;
  Array<FloatKey> intensityKeys;
  Array<FloatKey> attenuationStartKeys, attenuationEndKeys;  // omni and spot
  Array<FloatKey> hotspotKeys, falloffKeys;                  // spot
  std::uint32_t loopToFrame = 0;
  std::size_t order = 0;
};

// A chunk the reader did not decode: an id it does not know, or a known
// kind of another version (its body was skipped by its length).
struct SkippedChunk {
  std::uint32_t id = 0;
  std::uint32_t version = 0;
  std::size_t offset = 0;
  std::string name;  // empty for an unknown id
};

struct Scene {
  std::string path;
  std::size_t size = 0;  // bytes
  std::vector<Mesh> meshes;
  std::vector<Camera> cameras;
  std::vector<Light> lights;
  std::vector<Helper> helpers;
  std::optional<Environment> environment;
  std::optional<MaterialList> materials;
  std::vector<TransformAnimation> transformAnimations;
  std::vector<LightAnimation> lightAnimations;
  std::vector<SkippedChunk> skipped;  // top level only

  // Every node (meshes, cameras, lights, helpers) in file order.
  std::vector<const Node*> nodes() const;
  // The node named `name`, or nullptr.
  const Node* findNode(const std::string& name) const;
};

// ---------------------------------------------------------------- .skd

// Per-vertex bone influences of one mesh. Vertex v has influenceCount[v]
// influences from influenceStart[v] on in the influence arrays.
struct SkinData {
  std::string path;
  std::vector<std::string> nodeNames;  // the skinned mesh's node
  std::vector<std::string> boneNames;
  Array<std::int32_t> influenceStart;
  Array<std::int32_t> influenceCount;
  Array<std::int32_t> influenceBone;    // index into boneNames
  Array<float> influenceWeight;
  std::vector<std::uint32_t> groupVertexCount;  // the mesh's material groups
  std::vector<std::uint32_t> groupVertexStart;
};

// ---------------------------------------------------------------- ZTExport.cfg

struct OptionValue {
  enum class Type { Int, Float, Strings };
  std::string name;  // as docs/zt2-format.md and zt2export --set name it
  Type type = Type::Int;
  std::int32_t intValue = 0;
  float floatValue = 0;
  std::vector<std::string> strings;  // texturePathHistory
};

struct Options {
  std::string path;
  std::int32_t version = 0;
  // A newer version than this reader knows: no values were decoded.
  bool newerVersion = false;
  // In file order; values a version does not hold are absent.
  std::vector<OptionValue> values;

  const OptionValue* find(const std::string& name) const;
};

// ---------------------------------------------------------------- reading

// Each throws FormatError: Unreadable when the file cannot be read, Corrupt
// when its bytes do not follow the format, WrongKind when it is another
// kind of file (told from its content, the extension breaking ties).
Scene readScene(const std::string& path);
SkinData readSkin(const std::string& path);
Options readOptions(const std::string& path);

// The kind of the file at `path`, from its first bytes.
FileKind readFileKind(const std::string& path);

// The same from bytes in memory (a whole file, header included); `name`
// stands for the file in messages and its extension breaks ties.
Scene decodeScene(const std::string& name, std::vector<std::uint8_t> bytes);
SkinData decodeSkin(const std::string& name, std::vector<std::uint8_t> bytes);
Options decodeOptions(const std::string& name, std::vector<std::uint8_t> bytes);

}  // namespace ztexport
