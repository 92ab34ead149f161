// Our own reader of plain OBJ files. The import library's OBJ reader spends
// most of a large model's import in allocations (a few per face); this one
// reads the same files in one pass over the text and gives the scene the
// library would, triangulated as the front end asks, each distinct corner of
// a mesh once where the library makes a vertex of every corner. What is
// exported does not depend on which of the two read the file.
//
// It takes what plain OBJ files hold: v (with or without a colour), vt, vn,
// triangles in any of the four corner forms, o, g, s and usemtl. A file with
// anything else (a material library, polygons of more corners, points or
// lines, relative or zero indices, an index beyond its list, free-form
// geometry, numbers in forms the library reads differently, a line
// continued on the next) is left to the library (docs/import.md).
#pragma once

#include <string>

#include "importers/own_scene.h"

namespace hostimport {

// The scene of the OBJ file `path`, or null when the file is not one this
// reader takes, or cannot be read (the library then reads it and says why).
OwnScene readPlainObj(const std::string& path);

}  // namespace hostimport
