// Mesh export: the node's object as one triangle mesh in the file's axes,
// split until every vertex has one normal and one coordinate per mapping
// channel, grouped by material and written as a MeshChunk.
#include "geometry/export_mesh.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>

#include "geometry/group_split.h"
#include "geometry/mesh_build.h"
#include "geometry/mesh_processing.h"
#include "geometry/mesh_record.h"
#include "geometry/vector_math.h"
#include "geometry/vertex_data_record.h"
#include "host/inhouse/exceptions.h"
#include "host/inhouse/system.h"
#include "host/inode.h"
#include "host/material.h"
#include "host/mesh.h"
#include "host/objects.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

namespace {

// The mesh's vertex data channel that carries each vertex's host index through the clean-up.
constexpr int kHostIndexChannel = 10;
constexpr std::uint32_t kNoMapVertex = std::numeric_limits<std::uint32_t>::max();

Matrix3 toMatrix3(const M_Matrix4x3Template<float>& m) {
  return Matrix3({m[0][0], m[0][1], m[0][2]}, {m[1][0], m[1][1], m[1][2]}, {m[2][0], m[2][1], m[2][2]},
                 {m[3][0], m[3][1], m[3][2]});
}

// Corner order of one face in the file: reversed unless the offset mirrors.
struct Winding {
  int first, second, third;
};

Winding windingFor(bool mirrored) { return mirrored ? Winding{0, 1, 2} : Winding{2, 1, 0}; }

// The node's object as a triangle-mesh object, or empty when it has no
// triangle form. A conversion the host made for us goes with the result.
ConvertedObject triangleObjectOf(Object* obj, TimeValue t) {
  if (obj->SuperClassID() != GEOMOBJECT_CLASS_ID || !obj->CanConvertToType(TRIOBJ_CLASS_ID)) return {};
  ConvertedObject converted = obj->ConvertToType(t, TRIOBJ_CLASS_ID);
  if (!dynamic_cast<TriObject*>(converted.get())) return {};
  return converted;
}

// False when a position overflows the float once placed and scaled.
bool buildPositions(const SceneExporter& exporter, const Mesh& mesh, const Matrix3& objectOffset, MeshBuild& build) {
  const Matrix3 axis = toMatrix3(exporter.axisConversion);
  const float scale = exporter.options.rescaleFactor;
  const std::size_t n = mesh.verts.size();
  build.positions.reserve(geometry::withRoomForCopies(n));
  build.positions.resize(n);
  // The host's points are read a block at a time: those still in the
  // scene's files are never held whole.
  bool finite = true;
  mesh.verts.copyOut(0, n, build.positions.data());
  for (std::size_t i = 0; i < n; ++i) {
    const Point3 p = (build.positions[i] * objectOffset) * axis;
    build.positions[i] = {p.x * scale, p.y * scale, p.z * scale};
    // 0 * x is 0 only for a finite x: one test per vertex, no branch.
    const Point3& q = build.positions[i];
    finite &= q.x * 0.0f + q.y * 0.0f + q.z * 0.0f == 0.0f;
  }
  return finite;
}

void buildTriangles(const Mesh& mesh, MeshBuild& build) {
  const Winding w = windingFor(build.mirrored);
  const std::size_t faces = mesh.faces.size();
  build.indices.resize(3 * faces);
  build.smoothingGroups.resize(faces);
  for (std::size_t f = 0; f < faces; ++f) {
    const Face& face = mesh.faces[f];
    build.indices[3 * f] = face.v[w.first];
    build.indices[3 * f + 1] = face.v[w.second];
    build.indices[3 * f + 2] = face.v[w.third];
    build.smoothingGroups[f] = face.smGroup;
  }
}

// Per face: the position of its material in materialNames, or -1. Faces are
// resolved through the node material's sub-material slots (id modulo slots).
void buildMaterials(const SceneExporter& exporter, INode* node, const Mesh& mesh, MeshBuild& build) {
  const std::size_t faces = mesh.faces.size();
  build.faceMaterials.assign(faces, -1);
  if (!exporter.options.exportMaterials) return;
  const Mtl* mtl = node->GetMtl();
  if (!mtl) return;

  // One resolution per slot instead of one per face.
  const int slots = mtl->NumSubMtls();
  std::vector<const Mtl*> slotMaterial(static_cast<std::size_t>(std::max(slots, 1)), mtl);
  for (int s = 0; s < slots; ++s) slotMaterial[s] = mtl->GetSubMtl(s);
  std::vector<int> slotIndex(slotMaterial.size());
  for (std::size_t s = 0; s < slotMaterial.size(); ++s)
    slotIndex[s] = slotMaterial[s] ? exporter.materialIndexTable.find(slotMaterial[s]) : -1;
  auto slotOf = [&](const Face& face) -> std::size_t {
    return slots > 0 ? face.getMatID() % static_cast<unsigned>(slots) : 0;
  };

  std::size_t exported = 0;
  for (const Face& face : mesh.faces) exported += slotIndex[slotOf(face)] >= 0;
  if (exported == 0) return;

  // Table index -> position in materialNames, handed out in order of first use.
  std::vector<int> position(static_cast<std::size_t>(exporter.materialIndexTable.size()), -1);
  for (std::size_t f = 0; f < faces; ++f) {
    const std::size_t s = slotOf(mesh.faces[f]);
    const int tableIndex = slotIndex[s];
    if (tableIndex < 0) continue;  // no material, or one the pre-pass did not enter
    int& at = position[static_cast<std::size_t>(tableIndex)];
    if (at < 0) {
      at = static_cast<int>(build.materialNames.size());
      build.materialNames.push_back(slotMaterial[s]->GetName());
    }
    build.faceMaterials[f] = at;
  }
}

void buildMapChannel(const HostArray<Point3>& hostCoords, const HostArray<TVFace>& hostFaces, std::size_t faceCount,
                     bool mirrored, MeshBuild& build) {
  const int ch = build.mapChannelCount;
  std::vector<Point3>& out = build.mapCoords[ch];
  // Read into the build's own arrays, a block of faces at a time: the host's
  // arrays, when still in the scene's files, are never held whole.
  out.resize(hostCoords.size());
  hostCoords.copyOut(0, out.size(), out.data());
  for (Point3& c : out) c.y = -c.y;
  constexpr std::size_t kBlock = 4096;
  TVFace block[kBlock];
  const std::size_t mapFaces = hostFaces.size();
  const Winding w = windingFor(mirrored);
  std::vector<std::uint32_t>& idx = build.mapIndices[ch];
  idx.resize(3 * faceCount);
  for (std::size_t f = 0; f < faceCount; ++f) {
    // A face without a map face reads as coordinate (0, 0, 0).
    if (f >= mapFaces) {
      idx[3 * f] = idx[3 * f + 1] = idx[3 * f + 2] = kNoMapVertex;
      continue;
    }
    if (f % kBlock == 0) hostFaces.copyOut(f, std::min(kBlock, mapFaces - f), block);
    const TVFace& tf = block[f % kBlock];
    idx[3 * f] = tf.t[w.first];
    idx[3 * f + 1] = tf.t[w.second];
    idx[3 * f + 2] = tf.t[w.third];
  }
  build.mapChannelCount = ch + 1;
}

// The mesh's mapping channels in the file's order: texture coordinates, then
// vertex colours, each when the mesh has them.
struct MapSource {
  const HostArray<Point3>* coords;
  const HostArray<TVFace>* faces;
  bool colours;
};
std::vector<MapSource> mapSources(const Mesh& mesh) {
  std::vector<MapSource> out;
  if (!mesh.tVerts.empty()) out.push_back({&mesh.tVerts, &mesh.tvFace, false});
  if (!mesh.vertCol.empty()) out.push_back({&mesh.vertCol, &mesh.vcFace, true});
  return out;
}

// hostIndices follow every vertex the algorithms append, from `mark` on.
void traceSplits(MeshBuild& build, std::size_t mark) {
  for (std::size_t i = mark; i < build.splitSources.size(); ++i)
    build.hostIndices.push_back(build.hostIndices[build.splitSources[i]]);
}

// The skin side of one export: where keys come from and what they index.
struct SkinSource {
  bool on = false;                                 // skinning exported
  const std::vector<SkinVertexWeights>* entry = nullptr;  // the node's table entry
  const std::vector<std::int32_t>* keys = nullptr;        // channel 10, when it survived
  bool keyErrorReported = false;
};

// Running positions of the next group in the record's flat arrays.
struct GroupBases {
  std::size_t vertex = 0;
  std::size_t face = 0;
  std::size_t influence = 0;
};

class MeshWriter {
 public:
  // `hostIndices` holds each build vertex's host index (null when the build
  // carries none).
  MeshWriter(SceneExporter& exporter, INode* node, MeshRecord& record, VertexDataRecord& skinRecord, SkinSource& skin,
             int channels, const std::uint32_t* hostIndices)
      : exporter_(exporter), node_(node), record_(record), skinRecord_(skinRecord), skin_(skin), channels_(channels),
        hostIndices_(hostIndices) {}

  // Sizes every group table to the groups of `names` (marking those parts
  // present) and reserves the flat arrays for about the whole mesh, so that
  // growing them group by group does not copy them again and again.
  void sizeGroups(const std::vector<std::string>& names, std::size_t vertices, std::size_t triangles) {
    const std::size_t groups = names.size();
    if (groups > 0) {
      record_.vertices().sources.reserve(vertices);
      record_.faces().indices.reserve(3 * triangles);
    }
    record_.materialNames() = names;
    record_.vertices().groups.resizeGroups(groups);
    record_.faces().groups.resizeGroups(groups);
    for (int ch = 0; ch < channels_; ++ch) record_.mapChannel(ch).groups.resizeGroups(groups);
    if (skin_.on) skinRecord_.resizeGroups(groups);
  }

  // Stores one material group; a group beyond 16-bit indices becomes several
  // consecutive groups of the same material.
  void storeGroup(std::size_t& slot, const GroupView& group) {
    if (group.vertexCount <= kMaxGroupVertices) {
      store(slot++, group);
      return;
    }
    std::vector<MaterialSubMesh>& pieces = pieces_;
    const std::size_t runs = splitOversizedGroup(group, pieces, exporter_.meshScratch().split);
    const std::string name = record_.materialNameList()[slot];
    if (runs == 1)
      // Its triangles fit in one group: only vertices no triangle uses are left out.
      exporter_.logMessage(
          "WARNING: Object \"%s\" material \"%s\" holds %zu vertices, more than one group can index; vertices "
          "that no triangle uses were left out",
          node_->GetName(), name.c_str(), group.vertexCount);
    else
      exporter_.logMessage(
          "WARNING: Object \"%s\" material \"%s\" uses %zu vertices, more than one group can index; written as %zu "
          "groups of that material",
          node_->GetName(), name.c_str(), group.vertexCount, runs);
    insertGroups(slot + 1, runs - 1, name);
    for (std::size_t r = 0; r < runs; ++r) store(slot++, viewOf(pieces[r]));
  }

 private:
  void insertGroups(std::size_t at, std::size_t n, const std::string& name) {
    if (n == 0) return;
    std::vector<std::string>& names = record_.materialNames();
    names.insert(names.begin() + static_cast<std::ptrdiff_t>(at), n, name);
    record_.vertices().groups.insertGroups(at, n);
    record_.faces().groups.insertGroups(at, n);
    for (int ch = 0; ch < channels_; ++ch) record_.mapChannel(ch).groups.insertGroups(at, n);
    if (skin_.on) skinRecord_.insertGroups(at, n);
  }

  void store(std::size_t slot, const GroupView& g) {
    const std::size_t nV = g.vertexCount;
    MeshVertexRecord& vertices = record_.vertices();
    vertices.resize(bases_.vertex + nV);
    vertices.groups.setGroupCount(slot, static_cast<std::uint32_t>(nV));
    std::uint32_t* sources = vertices.sources.data() + bases_.vertex;
    if (g.sources)
      std::copy(g.sources, g.sources + nV, sources);
    else
      for (std::size_t i = 0; i < nV; ++i) sources[i] = static_cast<std::uint32_t>(i);

    if (skin_.on) storeSkin(slot, g);

    for (int ch = 0; ch < channels_; ++ch) {
      MeshMapChannelRecord& channel = record_.mapChannel(ch);
      channel.channel = static_cast<std::uint32_t>(ch);
      channel.resize(bases_.vertex + nV);
      channel.groups.setGroupCount(slot, static_cast<std::uint32_t>(nV));
    }

    const std::size_t nF = g.indexCount / 3;
    MeshFaceRecord& faces = record_.faces();
    faces.resizeTriangles(bases_.face + nF);
    faces.groups.setGroupCount(slot, static_cast<std::uint32_t>(nF));
    std::uint16_t* out = faces.indices.data() + faces.groups.start(slot);
    for (std::size_t k = 0; k < 3 * nF; ++k) out[k] = static_cast<std::uint16_t>(g.indices[k]);

    bases_.face += nF;
    bases_.vertex += nV;
  }

  const SkinVertexWeights& weightsOf(std::uint32_t hostIndex) {
    const std::int32_t key = (*skin_.keys)[hostIndex];
    if (key >= 0 && static_cast<std::size_t>(key) < skin_.entry->size()) return (*skin_.entry)[key];
    if (!skin_.keyErrorReported) {
      skin_.keyErrorReported = true;
      exporter_.logError("ERROR: Object \"%s\" vertex %d has no skin vertex for skinning (skin vertex count %zu)",
                           node_->GetName(), key, skin_.entry->size());
    }
    return noWeights_;
  }

  void storeSkin(std::size_t slot, const GroupView& g) {
    if (!skin_.keys || !hostIndices_) {
      exporter_.logError("ERROR: No skin data for skinning (object \"%s\")", node_->GetName());
      return;
    }
    const std::size_t nV = g.vertexCount;
    skinRecord_.resizeVertices(bases_.vertex + nV);
    skinRecord_.setGroupVertexCount(slot, static_cast<std::uint32_t>(nV));
    std::size_t total = 0;
    for (std::size_t i = 0; i < nV; ++i) total += weightsOf(hostIndices_[g.source(i)]).size();
    skinRecord_.resizeInfluences(bases_.influence + total);
    for (std::size_t i = 0; i < nV; ++i) {
      const SkinVertexWeights& w = weightsOf(hostIndices_[g.source(i)]);
      skinRecord_.setVertexInfluences(slot, i, static_cast<std::int32_t>(w.size()),
                                      static_cast<std::int32_t>(bases_.influence));
      for (std::size_t j = 0; j < w.size(); ++j) skinRecord_.setInfluence(slot, i, j, w[j].bone, w[j].weight);
      bases_.influence += w.size();
    }
  }

  SceneExporter& exporter_;
  INode* node_;
  MeshRecord& record_;
  VertexDataRecord& skinRecord_;
  SkinSource& skin_;
  const SkinVertexWeights noWeights_;  // what a vertex without a skin entry gets
  int channels_;
  const std::uint32_t* hostIndices_;
  GroupBases bases_;
  std::vector<MaterialSubMesh> pieces_;  // runs of an oversized group
};

// Whether the clean-up before a mesh is built would change it: a face that
// names a vertex twice (removed with the floating vertices) or one that does
// not exist, or a vertex no face names (with the floating vertices).
bool cleanUpChanges(const Mesh& mesh, bool removeFloatingVertices) {
  const std::size_t n = mesh.verts.size();
  std::vector<bool> used(removeFloatingVertices ? n : 0, false);
  for (const Face& f : mesh.faces) {
    const unsigned int* v = f.v;
    if (v[0] >= n || v[1] >= n || v[2] >= n) return true;
    if (!removeFloatingVertices) continue;
    if (v[0] == v[1] || v[1] == v[2] || v[0] == v[2]) return true;
    used[v[0]] = used[v[1]] = used[v[2]] = true;
  }
  return removeFloatingVertices && std::find(used.begin(), used.end(), false) != used.end();
}

// Hands `v`'s storage back to the heap.
template <typename T>
void release(T& v) {
  v = T();
}

// A mesh larger than this leaves its work buffers to the heap before its
// record is written out, where they would only add to the run's peak memory;
// smaller meshes keep them, so that a scene of many meshes allocates once.
constexpr std::size_t kScratchKeptTriangles = 100000;

void writeReference(SceneExporter& exporter, INode* node, TimeValue t, const std::string& firstNode) {
  MeshRecord record;
  fillObjectRecord(exporter, record, node, t);
  record.referenceName() = firstNode;
  exporter.sceneFile << record;
}

void exportMeshUnguarded(SceneExporter& exporter, INode* node) {
  const ExportOptions& options = exporter.options;
  if (!isNodeExported(exporter, node)) return;

  const TimeValue t = exporter.startTime;
  Matrix3 objectOffset;
  if (options.pivotAsMeshCenter)
    objectOffset = ObjectOffsetMatrix(node->GetObjOffsetPos(), node->GetObjOffsetRot(), node->GetObjOffsetScale());

  Object* obj = node->EvalWorldState(t, true).obj;
  if (!obj || obj->ClassID() == TARGET_CLASS_ID) return;

  if (options.saveReferencesOnce) {
    const auto it = exporter.meshReferenceTable.find(obj);
    if (it != exporter.meshReferenceTable.end()) {
      writeReference(exporter, node, t, it->second);
      return;
    }
  }

  const ConvertedObject tri = triangleObjectOf(obj, t);
  if (!tri.get()) {
    exporter.logMessage("WARNING: Object \"%s\" cannot be converted to a triangle mesh and is not exported",
                        node->GetName());
    return;
  }
  // The host's mesh is cleaned up in a working copy, made only when the
  // clean-up would change something: most meshes are read where they lie,
  // which spares a copy as large as the mesh. A conversion the host made for
  // this export is ours and is cleaned up where it is. Each array of a copy
  // or of our own conversion, and of the build, goes back to the heap as soon
  // as nothing reads it again, so that the arrays made after it reuse its
  // pages: the export's peak memory, and with it the pages the kernel faults
  // in, stays lower. (A conversion whose arrays are still in the scene's
  // files reads each one only when it is first used.)
  MeshScratch& scratch = exporter.meshScratch();
  const Mesh& hostMesh = static_cast<TriObject*>(tri.get())->GetMesh();
  Mesh* const ownMesh = tri.ownsObject() ? &static_cast<TriObject*>(tri.get())->GetMesh() : nullptr;
  std::optional<Mesh> copy;
  Mesh* work = nullptr;  // the mesh the clean-up changes: a copy, or our own conversion
  if (cleanUpChanges(hostMesh, options.removeFloatingVertices)) work = ownMesh ? ownMesh : &copy.emplace(hostMesh);
  Mesh* const spent = work ? work : ownMesh;  // the mesh whose arrays may go once read

  SkinSource skin;
  skin.on = options.exportSkinning;
  if (skin.on) {
    const auto it = exporter.skinWeightTable.find(node);
    if (it != exporter.skinWeightTable.end()) {
      skin.entry = &it->second;
      if (work) {
        work->setVDataSupport(kHostIndexChannel, true);
        std::vector<std::int32_t>& slots = work->vData[kHostIndexChannel].data;
        for (std::size_t i = 0; i < slots.size(); ++i) slots[i] = static_cast<std::int32_t>(i);
      }
    }
  }

  if (work && options.removeFloatingVertices) {
    work->RemoveDegenerateFaces();
    work->RemoveIllegalFaces();
    work->DeleteIsoVerts();
  } else if (work) {
    // Without the clean-up a face may still name a vertex that does not
    // exist; such a face has no place in the file, so it goes anyway.
    const std::size_t before = work->faces.size();
    work->RemoveIllegalFaces();
    if (work->faces.size() != before)
      exporter.logMessage("WARNING: Object \"%s\" has %zu faces naming vertices that do not exist; they are not exported",
                          node->GetName(), before - work->faces.size());
  }
  const Mesh& mesh = work ? *work : hostMesh;
  // The skin keys (each vertex's host index) outlive the working copy, which
  // goes as soon as the build holds the mesh.
  std::vector<std::int32_t> skinKeys;
  if (skin.entry && work && work->vDataSupport(kHostIndexChannel) &&
      work->vData[kHostIndexChannel].data.size() == work->verts.size()) {
    skinKeys = std::move(work->vData[kHostIndexChannel].data);
    skin.keys = &skinKeys;
  } else if (skin.entry && !work) {
    skinKeys.resize(mesh.verts.size());
    for (std::size_t i = 0; i < skinKeys.size(); ++i) skinKeys[i] = static_cast<std::int32_t>(i);
    skin.keys = &skinKeys;
  }

  MeshBuild build;
  build.mirrored = DotProd(CrossProd(objectOffset.GetRow(0), objectOffset.GetRow(1)), objectOffset.GetRow(2)) < 0.0f;

  MeshRecord record;
  fillObjectRecord(exporter, record, node, t);

  VertexDataRecord skinRecord;
  if (skin.on) {
    skinRecord.setNodeName(node->GetName());
    skinRecord.setBoneNames(exporter.skinBoneNames);
  }

  if (!buildPositions(exporter, mesh, objectOffset, build)) {
    exporter.logError("ERROR: Object \"%s\" has vertices beyond the range of a float once placed and scaled; it "
                      "cannot be exported.",
                      node->GetName());
    return;
  }
  if (spent) release(spent->verts);
  buildTriangles(mesh, build);
  buildMaterials(exporter, node, mesh, build);
  if (skin.on) {
    build.hostIndices.resize(build.positions.size());
    for (std::size_t i = 0; i < build.hostIndices.size(); ++i) build.hostIndices[i] = static_cast<std::uint32_t>(i);
  }
  const bool largeMesh = build.triangleCount() > kScratchKeptTriangles;

  // The smoothing pass reads no map channel, and a channel is read only by
  // its own unification: each channel's arrays are made after the smoothing
  // pass has let its own go, just before they are read, and go right after,
  // so that a large mesh holds one set at a time. A working copy goes first,
  // as the build then holds all that is read of it (of `maps`, only their
  // number is read once it has gone).
  const std::size_t faceCount = mesh.faces.size();
  const std::vector<MapSource> maps = mapSources(mesh);
  auto releaseMap = [&](const MapSource& m) {
    if (!spent) return;
    if (m.colours) {
      release(spent->vertCol);
      release(spent->vcFace);
    } else {
      release(spent->tVerts);
      release(spent->tvFace);
    }
  };
  if (spent) release(spent->faces);
  const bool cleaned = work != nullptr;
  build.mapChannelCount = 0;
  if (cleaned) {
    for (const MapSource& m : maps) {
      buildMapChannel(*m.coords, *m.faces, faceCount, build.mirrored, build);
      releaseMap(m);
    }
    copy.reset();
  }
  computeSmoothNormals(build, scratch.normals);
  release(build.smoothingGroups);  // read by the smoothing pass alone
  if (largeMesh) release(scratch.normals);
  if (skin.on) traceSplits(build, 0);
  for (int ch = 0; ch < static_cast<int>(maps.size()); ++ch) {
    if (!cleaned) {
      buildMapChannel(*maps[ch].coords, *maps[ch].faces, faceCount, build.mirrored, build);
      releaseMap(maps[ch]);
    }
    const std::size_t mark = build.splitSources.size();
    unifyMapChannel(build, ch, scratch.maps);
    if (skin.on) traceSplits(build, mark);
    release(build.mapCoords[ch]);
    release(build.mapIndices[ch]);
  }

  {  // the writer, with its pieces, and the cut groups are gone before the record is written out
    MeshWriter writer(exporter, node, record, skinRecord, skin, build.mapChannelCount,
                      build.hostIndices.size() == build.vertexCount() ? build.hostIndices.data() : nullptr);
    writer.sizeGroups(build.materialNames, build.vertexCount(), build.triangleCount());
    const std::size_t groups = build.materialNames.size();
    std::size_t slot = 0;
    if (groups == 1) {
      Sys->verbose("copy data\n");
      writer.storeGroup(slot, viewOf(build));
    } else {
      MaterialSubMesh group;
      MaterialGroupCutter cutter(build, scratch.groups);
      release(build.faceMaterials);  // the cutter has bucketed the triangles by them
      for (std::size_t m = 0; m < groups; ++m) {
        Sys->verbose("extract by mat\n");
        cutter.extract(static_cast<int>(m), group);
        writer.storeGroup(slot, viewOf(group));
      }
    }
  }
  // The record reads its vertices' values from the build as it is written
  // out; all else of the build goes back to the heap before that.
  const std::size_t n = build.vertexCount();
  MeshVertexValues& values = record.vertexValues();
  values.positions = build.positions.data();
  values.normals = build.normals.size() == n ? build.normals.data() : nullptr;
  for (int ch = 0; ch < build.mapChannelCount && ch < kMeshWrittenMapSlots; ++ch)
    values.maps[ch] = build.vertexMaps[ch].size() == n ? build.vertexMaps[ch].data() : nullptr;
  release(build.indices);
  release(build.smoothingGroups);
  release(build.faceMaterials);
  release(build.splitSources);
  release(build.hostIndices);
  if (largeMesh) release(scratch);

  exporter.sceneFile << record;
  exporter.meshReferenceTable.emplace(obj, node->GetName());
  if (skin.on) saveVertexDataFile(exporter, skinRecord);
}

}  // namespace

void exportMesh(SceneExporter& exporter, INode* node) {
  try {
    exportMeshUnguarded(exporter, node);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}
