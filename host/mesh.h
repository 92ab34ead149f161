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

class Mesh {
 public:
  std::vector<Point3> verts;
  std::vector<Face> faces;
  std::vector<UVVert> tVerts;
  std::vector<TVFace> tvFace;      // one per face when tVerts is not empty
  std::vector<VertColor> vertCol;
  std::vector<TVFace> vcFace;      // one per face when vertCol is not empty
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

 private:
  std::array<bool, MAX_VERTEX_DATA> vDataOn_{};
  void keepFaces(const std::vector<bool>& keep);
};
