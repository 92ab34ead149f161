// Per-vertex file checks: the lists line up, influence runs follow each
// other, bones exist, group tables are running sums; and, with the scene
// file beside it, the lists match the mesh they belong to.
#include <cmath>

#include "format/chunk_kinds.h"
#include "dump/scene_checks.h"
#include "dump/validate.h"
#include "dump/validation_support.h"

namespace zt2dump {

namespace {

const DecodedChunk& vertexDataChunk(const DecodedFile& file) {
  const DecodedChunk* found = nullptr;
  for (const DecodedChunk& c : file.chunks) {
    if (!c.known()) continue;
    if (c.id != chunk_kind::kVertexData.id) fault(file, where(c) + " does not belong in a per-vertex file");
    if (!c.decoded) fault(file, where(c) + ": " + c.note);
    if (found != nullptr) fault(file, where(c) + " is a second VertexDataChunk");
    found = &c;
  }
  if (found == nullptr) fault(file, "holds no VertexDataChunk");
  return *found;
}

void sameLength(const DecodedFile& file, const DecodedChunk& c, const char* a, const char* b) {
  if (c.at(a).size() != c.at(b).size())
    fault(file, where(c) + ": " + a + " has " + std::to_string(c.at(a).size()) + " entries but " + b + " has " +
                    std::to_string(c.at(b).size()));
}

}  // namespace

void validateVertexData(const DecodedFile& file) {
  const DecodedChunk& c = vertexDataChunk(file);
  const std::string at = where(c) + ": ";
  if (c.at("nodeNames").size() != 1)
    fault(file, at + "nodeNames has " + std::to_string(c.at("nodeNames").size()) + " entries, not 1");
  sameLength(file, c, "influenceStart", "influenceCount");
  sameLength(file, c, "influenceBone", "influenceWeight");
  sameLength(file, c, "groupVertexCount", "groupVertexStart");

  const auto starts = intsOf(c.at("influenceStart"));
  const auto counts = intsOf(c.at("influenceCount"));
  std::int64_t running = 0;
  for (std::size_t v = 0; v < starts.size(); ++v) {
    if (counts[v] < 0) fault(file, at + "vertex " + std::to_string(v) + " has a negative influenceCount");
    if (starts[v] != running)
      fault(file, at + "vertex " + std::to_string(v) + " has influenceStart " + std::to_string(starts[v]) +
                      " but the counts before it add up to " + std::to_string(running));
    running += counts[v];
  }
  const auto bones = intsOf(c.at("influenceBone"));
  if (running != static_cast<std::int64_t>(bones.size()))
    fault(file, at + "the influence counts add up to " + std::to_string(running) + " but influenceBone has " +
                    std::to_string(bones.size()) + " entries");
  const auto boneCount = static_cast<std::int64_t>(c.at("boneNames").size());
  for (std::size_t i = 0; i < bones.size(); ++i)
    if (bones[i] < 0 || bones[i] >= boneCount)
      fault(file, at + "influence " + std::to_string(i) + " names bone " + std::to_string(bones[i]) + " of " +
                      std::to_string(boneCount) + " bone names");
  const Json& weights = c.at("influenceWeight");
  for (std::size_t i = 0; i < weights.size(); ++i)
    if (!weights[i].is_number() || !std::isfinite(weights[i].get<double>()))
      fault(file, at + "influence " + std::to_string(i) + " has a weight that is not finite");

  const auto groupCounts = intsOf(c.at("groupVertexCount"));
  const auto groupStarts = intsOf(c.at("groupVertexStart"));
  std::int64_t groupRunning = 0;
  for (std::size_t g = 0; g < groupCounts.size(); ++g) {
    if (groupStarts[g] != groupRunning)
      fault(file, at + "group " + std::to_string(g) + " has groupVertexStart " + std::to_string(groupStarts[g]) +
                      " but the counts before it add up to " + std::to_string(groupRunning));
    groupRunning += groupCounts[g];
  }
  if (groupRunning != static_cast<std::int64_t>(starts.size()))
    fault(file, at + "the group vertex counts add up to " + std::to_string(groupRunning) + " but there are " +
                    std::to_string(starts.size()) + " per-vertex entries");
}

void validateSkinAgainstScene(const DecodedFile& scene, const DecodedFile& skin) {
  const DecodedChunk& data = vertexDataChunk(skin);
  const std::string node = data.at("nodeNames").front().get<std::string>();
  const DecodedChunk* vertices = nullptr;
  for (const DecodedChunk& c : scene.chunks)
    if (c.id == chunk_kind::kMesh.id && c.decoded && objectName(c) == node) {
      vertices = childWithId(c, chunk_kind::kMeshVertex.id);
      if (vertices != nullptr) break;
    }
  const std::string at = skin.path + " against " + scene.path + ": ";
  if (vertices == nullptr) throw DumpError(at + "no mesh named \"" + node + "\" with vertices in the scene file");
  const std::int64_t vertexCount = intOf(vertices->at("vertexCount"));
  const std::size_t perVertex = data.at("influenceStart").size();
  if (static_cast<std::int64_t>(perVertex) != vertexCount)
    throw DumpError(at + "the per-vertex lists have " + std::to_string(perVertex) + " entries but mesh \"" + node +
                    "\" has " + std::to_string(vertexCount) + " vertices");
  const auto meshGroups = intsOf(vertices->at("groupVertexCounts"));
  const auto skinGroups = intsOf(data.at("groupVertexCount"));
  if (meshGroups != skinGroups)
    throw DumpError(at + "groupVertexCount does not repeat the group vertex counts of mesh \"" + node + "\"");
}

}  // namespace zt2dump
