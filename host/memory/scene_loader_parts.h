// The pieces of the scene loader, one file each: keyed values and
// transforms, meshes, objects, materials and texture maps, modifiers. They
// share the load context: where the file is, its frame rate, the buffer
// files, the host being filled and the bone references still to resolve.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/memory/binary_buffers.h"
#include "host/memory/json_cursor.h"
#include "host/memory/memory_host_impl.h"

namespace hostmodel {

// An entry of a skin's bone table, named by node id and resolved once every
// node exists; `path` is the place of its first use.
struct PendingBone {
  MemoryPhysiqueContext* context = nullptr;
  std::size_t index = 0;
  std::string nodeId;
  std::string path;
};

struct LoadContext {
  LoadContext(MemoryHost::Impl& s, std::string dir) : scene(s), baseDir(dir), buffers(std::move(dir)) {}

  MemoryHost::Impl& scene;
  std::string baseDir;
  BufferFiles buffers;
  int ticksPerFrame = 160;  // of the scene's own frame rate
  std::multimap<std::string, MemoryNode*> nodesById;
  std::vector<PendingBone> pendingBones;

  // A path of the scene resolved against its directory.
  std::string resolvePath(const std::string& path) const;
};

// --- keyed values and transforms (track_loader.cpp) ---
AnimatedValue<float> readFloatTrack(const JsonCursor& c, const LoadContext& ctx, float factor = 1.0f);
AnimatedValue<Point3> readPointTrack(const JsonCursor& c, const LoadContext& ctx);
AnimatedValue<Color> readColorTrack(const JsonCursor& c, const LoadContext& ctx);
AnimatedValue<Quat> readRotationTrack(const JsonCursor& c, const LoadContext& ctx);
Quat readRotation(const JsonCursor& c);
NodeTransform readTransform(const JsonCursor& c, const LoadContext& ctx);
ObjectOffset readObjectOffset(const JsonCursor& c);

// --- meshes (mesh_loader.cpp) ---
Mesh readMesh(const JsonCursor& c, LoadContext& ctx);

// --- objects (object_loader.cpp): `declared` objects carry an id ---
std::unique_ptr<Object> readObject(const JsonCursor& c, LoadContext& ctx, bool declared);

// --- materials and texture maps (material_loader.cpp) ---
void readTexmaps(const JsonCursor& list, LoadContext& ctx);
void readMaterials(const JsonCursor& list, LoadContext& ctx);
// A material given by id or inline.
Mtl* readMaterialReference(const JsonCursor& c, LoadContext& ctx);

// --- modifiers (modifier_loader.cpp) ---
std::unique_ptr<MemoryDerivedObject> readModifiers(const JsonCursor& list, LoadContext& ctx, MemoryNode& node,
                                                   Object* base);

}  // namespace hostmodel
