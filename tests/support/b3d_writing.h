// B3D models written byte by byte for the import tests: each chunk its tag,
// the length of what follows and its body, little-endian.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace ztx_test {

using Bytes = std::vector<unsigned char>;

template <typename T>
void put(Bytes& b, T v) {
  unsigned char raw[sizeof v];
  std::memcpy(raw, &v, sizeof v);
  b.insert(b.end(), raw, raw + sizeof v);
}

inline void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

inline Bytes b3dChunk(const char* tag, const Bytes& body) {
  Bytes b(tag, tag + 4);
  put(b, static_cast<std::uint32_t>(body.size()));
  append(b, body);
  return b;
}

// A node at `position`, unscaled and unturned, holding `inside`.
inline Bytes b3dNode(const std::string& name, std::array<float, 3> position, const Bytes& inside) {
  Bytes b(name.begin(), name.end());
  b.push_back(0);
  for (float v : position) put(b, v);
  for (float v : {1.0f, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f, 0.0f}) put(b, v);  // scale, then rotation w x y z
  append(b, inside);
  return b3dChunk("NODE", b);
}

}  // namespace ztx_test
