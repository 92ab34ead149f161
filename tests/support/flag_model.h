// A flag of the kind games ship in MD5: a cloth of 4 x 9 vertices hung from
// two chains of bones (top1..top4 along the top edge, bottom1..bottom4 along
// the bottom one) under "pole" under "origin", each vertex held by up to four
// bones, waving for a second at 24 frames per second. Joints in the mesh file
// stand in the model's space, in the animation relative to their parents, and
// the first frame is not the pose the mesh is bound in.
#pragma once

#include <string>

namespace ztx_test {

// Writes flag.md5mesh, flag.md5anim and the image its shader names,
// flag_d.tga, into `directory`.
void writeFlag(const std::string& directory);

}  // namespace ztx_test
