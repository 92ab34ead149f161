// The waving flag of the skinning and page tests, written as MD5 text.
#include "support/flag_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>
#include <vector>

#include "support/test_support.h"

namespace ztx_test {

void writeFlag(const std::string& directory) {
  using Vec3 = std::array<double, 3>;
  struct Joint {
    std::string name;
    int parent;
    Vec3 bind;      // in the model's space
    Vec3 offset;    // from the parent, in its space
  };
  std::vector<Joint> joints = {{"origin", -1, {0, 0, 0}, {0, 0, 0}}, {"pole", 0, {0, 0, 100}, {0, 0, 100}}};
  for (int row = 0; row < 2; ++row)
    for (int k = 0; k < 4; ++k) {
      const double z = row == 0 ? 100 : 60;
      joints.push_back({std::string(row == 0 ? "top" : "bottom") + std::to_string(k + 1),
                        k == 0 ? 1 : static_cast<int>(joints.size()) - 1, {10.0 * k, 0, z},
                        k == 0 ? Vec3{0, 0, z - 100} : Vec3{10, 0, 0}});
    }
  std::ostringstream mesh, anim;
  mesh << "MD5Version 10\ncommandline \"\"\n\nnumJoints " << joints.size() << "\nnumMeshes 1\n\njoints {\n";
  for (const Joint& j : joints)
    mesh << "\t\"" << j.name << "\"\t" << j.parent << " ( " << j.bind[0] << " " << j.bind[1] << " " << j.bind[2]
         << " ) ( 0 0 0 )\n";
  mesh << "}\n\nmesh {\n\tshader \"flag\"\n\n";
  constexpr int kColumns = 9, kRows = 4;
  std::ostringstream verts, weights;
  int weightCount = 0;
  for (int r = 0; r < kRows; ++r)
    for (int c = 0; c < kColumns; ++c) {
      const Vec3 p{40.0 * c / (kColumns - 1), 0, 60 + 40.0 * r / (kRows - 1)};
      const int k = std::min(static_cast<int>(p[0] / 10), 3);
      const double along = std::min((p[0] - 10 * k) / 10, 1.0), up = (p[2] - 60) / 40;
      std::vector<std::pair<int, double>> held;
      for (int row = 0; row < 2; ++row) {
        const double h = row == 0 ? up : 1 - up;
        const int first = 2 + 4 * row + k;
        held.emplace_back(first, h * (k < 3 ? 1 - along : 1));
        if (k < 3) held.emplace_back(first + 1, h * along);
      }
      std::erase_if(held, [](const auto& w) { return w.second <= 0; });
      verts << "\tvert " << r * kColumns + c << " ( " << c / 8.0 << " " << r / 3.0 << " ) " << weightCount << " "
            << held.size() << "\n";
      for (const auto& [joint, bias] : held) {
        const Vec3& at = joints[static_cast<std::size_t>(joint)].bind;
        weights << "\tweight " << weightCount++ << " " << joint << " " << bias << " ( " << p[0] - at[0] << " "
                << p[1] - at[1] << " " << p[2] - at[2] << " )\n";
      }
    }
  mesh << "\tnumverts " << kRows * kColumns << "\n" << verts.str() << "\n\tnumtris " << 2 * (kRows - 1) * (kColumns - 1) << "\n";
  int tri = 0;
  for (int r = 0; r + 1 < kRows; ++r)
    for (int c = 0; c + 1 < kColumns; ++c) {
      const int a = r * kColumns + c, b = a + 1, d = a + kColumns, e = d + 1;
      mesh << "\ttri " << tri << " " << a << " " << d << " " << b << "\n\ttri " << tri + 1 << " " << b << " " << d << " "
           << e << "\n";
      tri += 2;
    }
  mesh << "\n\tnumweights " << weightCount << "\n" << weights.str() << "}\n";

  constexpr int kFrames = 24;
  anim << "MD5Version 10\ncommandline \"\"\n\nnumFrames " << kFrames << "\nnumJoints " << joints.size()
       << "\nframeRate 24\nnumAnimatedComponents " << 6 * joints.size() << "\n\nhierarchy {\n";
  for (std::size_t i = 0; i < joints.size(); ++i)
    anim << "\t\"" << joints[i].name << "\"\t" << joints[i].parent << " 63 " << 6 * i << "\n";
  anim << "}\n\nbounds {\n";
  for (int f = 0; f < kFrames; ++f) anim << "\t( -60 -60 0 ) ( 60 60 120 )\n";
  anim << "}\n\nbaseframe {\n";
  for (const Joint& j : joints) anim << "\t( " << j.offset[0] << " " << j.offset[1] << " " << j.offset[2] << " ) ( 0 0 0 )\n";
  anim << "}\n";
  for (int f = 0; f < kFrames; ++f) {
    anim << "\nframe " << f << " {\n";
    const double phase = 2 * 3.14159265358979 * f / kFrames;
    for (std::size_t i = 0; i < joints.size(); ++i) {
      // A turn about the vertical axis, each bone a little behind the one
      // before it; the pole leans.
      const double angle = i == 0 ? 0 : i == 1 ? 0.05 * std::sin(phase) : 0.35 * std::sin(phase + 0.9 * ((i - 2) % 4) + (i >= 6 ? 0.3 : 0));
      const Vec3 axis = i == 1 ? Vec3{1, 0, 0} : Vec3{0, 0, 1};
      const double s = std::sin(angle / 2);
      anim << "\t" << joints[i].offset[0] << " " << joints[i].offset[1] << " " << joints[i].offset[2] << " " << -s * axis[0]
           << " " << -s * axis[1] << " " << -s * axis[2] << "\n";
    }
    anim << "}\n";
  }
  ztx_test::writeText(directory + "/flag.md5mesh", mesh.str());
  // The image the import library makes of the shader's name: a 2 x 2 TGA.
  const std::vector<unsigned char> tga = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 2, 0, 24, 0,
                                          200, 0, 40, 200, 60, 40, 200, 120, 40, 200, 180, 40};
  ztx_test::writeBytes(directory + "/flag_d.tga", tga);
  ztx_test::writeText(directory + "/flag.md5anim", anim.str());
}

}  // namespace ztx_test
