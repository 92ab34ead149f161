// tinygltf's code, which the native build takes from Debian's shared library.
// The build's flags leave out its file system and its image coders: the
// conversion writes to memory, with the images it embeds as they are.
#include <fstream>
#include <iostream>
#include <sstream>

// This C++ runtime has no file streams, which tinygltf's file writers name
// even without its file system; they are never called here, and a stand-in
// that opens nothing lets them compile.
namespace ztx_page {
class NoFileStream : public std::ostream {
 public:
  explicit NoFileStream(const char* /*name*/, std::ios_base::openmode /*mode*/ = std::ios_base::out)
      : std::ostream(nullptr) {}
  bool is_open() const { return false; }
  static constexpr std::ios_base::openmode binary = std::ios_base::binary;
};
}  // namespace ztx_page

#define ofstream file_stream_stand_in
namespace std {
using file_stream_stand_in = ztx_page::NoFileStream;
}  // namespace std

#define TINYGLTF_IMPLEMENTATION
#include <tiny_gltf.h>
