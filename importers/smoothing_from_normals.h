// Smoothing groups for a mesh that carries normals per face corner instead
// (every format but 3DS). See docs/import.md for the method and its limits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace hostimport {

// `faces` holds three vertex indices per face (positions already welded, so
// that faces meeting at a point name the same vertex); `cornerNormals` holds
// three normals (x, y, z each) per face, in the order of the face's corners.
// Returns one smoothing-group mask per face: faces that meet along an edge
// with the same normals at both its ends share a group; faces that meet at a
// vertex with different normals there share none, as long as 32 groups are
// enough for that.
std::vector<std::uint32_t> smoothingFromNormals(const std::vector<std::uint32_t>& faces,
                                                const std::vector<float>& cornerNormals, std::size_t vertexCount);

}  // namespace hostimport
