#include "host/mesh.h"

void Mesh::setVDataSupport(int channel, bool support) {
  if (channel < 0 || channel >= MAX_VERTEX_DATA) return;
  vDataOn_[channel] = support;
  if (support)
    vData[channel].data.assign(verts.size(), 0);
  else
    vData[channel].data.clear();
}

bool Mesh::vDataSupport(int channel) const {
  return channel >= 0 && channel < MAX_VERTEX_DATA && vDataOn_[channel];
}

void Mesh::keepFaces(const std::vector<bool>& keep) {
  const bool hasTv = tvFace.size() == faces.size();
  const bool hasVc = vcFace.size() == faces.size();
  std::size_t out = 0;
  for (std::size_t f = 0; f < faces.size(); ++f) {
    if (!keep[f]) continue;
    faces[out] = faces[f];
    if (hasTv) tvFace[out] = tvFace[f];
    if (hasVc) vcFace[out] = vcFace[f];
    ++out;
  }
  faces.resize(out);
  if (hasTv) tvFace.resize(out);
  if (hasVc) vcFace.resize(out);
}

void Mesh::RemoveDegenerateFaces() {
  std::vector<bool> keep(faces.size());
  for (std::size_t f = 0; f < faces.size(); ++f) {
    const unsigned int* v = faces[f].v;
    keep[f] = v[0] != v[1] && v[1] != v[2] && v[0] != v[2];
  }
  keepFaces(keep);
}

void Mesh::RemoveIllegalFaces() {
  const std::size_t n = verts.size();
  std::vector<bool> keep(faces.size());
  for (std::size_t f = 0; f < faces.size(); ++f) {
    const unsigned int* v = faces[f].v;
    keep[f] = v[0] < n && v[1] < n && v[2] < n;
  }
  keepFaces(keep);
}

void Mesh::DeleteIsoVerts() {
  const std::size_t n = verts.size();
  std::vector<unsigned int> remap(n, 0);
  std::vector<bool> used(n, false);
  for (const Face& f : faces)
    for (unsigned int v : f.v)
      if (v < n) used[v] = true;
  unsigned int next = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (!used[i]) continue;
    remap[i] = next;
    verts[next] = verts[i];
    for (int c = 0; c < MAX_VERTEX_DATA; ++c)
      if (vDataOn_[c] && vData[c].data.size() == n) vData[c].data[next] = vData[c].data[i];
    ++next;
  }
  if (next == n) return;
  verts.resize(next);
  for (int c = 0; c < MAX_VERTEX_DATA; ++c)
    if (vDataOn_[c] && vData[c].data.size() == n) vData[c].data.resize(next);
  for (Face& f : faces)
    for (unsigned int& v : f.v)
      if (v < n) v = remap[v];
}
