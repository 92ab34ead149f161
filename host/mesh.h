// The host's triangle mesh as the exporter reads it: vertices, faces with a
// smoothing-group mask and a material id, texture vertices with their faces,
// vertex colours with their faces, and per-vertex data channels.
//
// The clean-up operations keep every per-face list (texture and colour faces)
// and every per-vertex data channel in step with what they remove, as the
// host's do; mesh export relies on that to trace vertices back.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "host/host_array.h"
#include "host/max_types.h"

using MtlID = unsigned short;

struct Face {
  unsigned int v[3] = {0, 0, 0};
  unsigned int smGroup = 0;  // smoothing-group bit mask
  MtlID matID = 0;

  MtlID getMatID() const { return matID; }
  void setMatID(MtlID id) { matID = id; }
};

// Indices into a texture-vertex or colour-vertex list, one per face corner.
struct TVFace {
  unsigned int t[3] = {0, 0, 0};
};

// One per-vertex data channel: 32-bit slots, one per vertex.
struct PerData {
  std::vector<std::int32_t> data;
};

inline constexpr int MAX_VERTEX_DATA = 16;

// The arrays may be left in the file a scene was loaded from (HostArray): a
// copy of such a mesh copies no values, and reads them where it uses them.
class Mesh {
 public:
  HostArray<Point3> verts;
  HostArray<Face> faces;
  HostArray<UVVert> tVerts;
  HostArray<TVFace> tvFace;      // one per face when tVerts is not empty
  HostArray<VertColor> vertCol;
  HostArray<TVFace> vcFace;      // one per face when vertCol is not empty
  std::array<PerData, MAX_VERTEX_DATA> vData;

  int getNumVerts() const { return static_cast<int>(verts.size()); }
  int getNumFaces() const { return static_cast<int>(faces.size()); }
  int getNumTVerts() const { return static_cast<int>(tVerts.size()); }
  int getNumVertCol() const { return static_cast<int>(vertCol.size()); }

  // Creates (or drops) per-vertex data channel `channel`, one zeroed slot per vertex.
  void setVDataSupport(int channel, bool support = true);
  bool vDataSupport(int channel) const;

  // Removes faces that name one vertex twice or more.
  void RemoveDegenerateFaces();
  // Removes faces with a vertex index outside the vertex list.
  void RemoveIllegalFaces();
  // Removes vertices that no face uses and renumbers the faces.
  void DeleteIsoVerts();

  // Whether an array is still in the file the mesh was loaded from.
  bool hasDeferredArrays() const {
    return verts.isDeferred() || faces.isDeferred() || tVerts.isDeferred() || tvFace.isDeferred() ||
           vertCol.isDeferred() || vcFace.isDeferred();
  }

 private:
  std::array<bool, MAX_VERTEX_DATA> vDataOn_{};
  void keepFaces(const std::vector<bool>& keep);
};
