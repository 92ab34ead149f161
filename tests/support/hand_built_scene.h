// A hand-built scene file for the glTF and page tests.
#pragma once

#include <string>

namespace ztx_test {

// Writes `path`: material list (texture path "maps\\;elsewhere"; "Painted",
// diffuse (255, 128, 0) with layer 1 image "skin.png"; "Plain", diffuse
// (0, 0, 255)), helper "Root", mesh "Box" under it (two groups of one
// triangle, rows (1,0,0), (0,0,1), (0,-1,0) at (1, 3, 2); the second group's
// normals zero; vertex colours (1, 0.5) then (0, 1)), and Box's keys at
// 10 samples per second: samples 0 and 4 (translation (1, 2, 3) at 4),
// visibility 1, 0, 1 at samples 0, 2, 3.
void writeMaterialsAndAnimation(const std::string& path);

}  // namespace ztx_test
