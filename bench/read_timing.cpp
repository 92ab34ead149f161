// read_timing FILE [RUNS]: the C++ reader's time for one whole read of a
// scene file, the reference bench/python_bench.py sets ztexport.read against.
// Prints the fastest and the median of RUNS reads, in seconds, one per line:
// "best 0.0123" and "median 0.0130".
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ztexport/reader.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: read_timing FILE [RUNS]\n");
    return 2;
  }
  const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  std::vector<double> seconds;
  std::size_t vertices = 0;
  try {
    for (int i = 0; i < runs; ++i) {
      const auto start = std::chrono::steady_clock::now();
      const ztexport::Scene scene = ztexport::readScene(argv[1]);
      seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      vertices = 0;
      for (const ztexport::Mesh& mesh : scene.meshes) vertices += mesh.positions.size();
    }
  } catch (const ztexport::FormatError& e) {
    std::fprintf(stderr, "read_timing: %s\n", e.what());
    return 2;
  }
  std::sort(seconds.begin(), seconds.end());
  std::printf("best %.6f\nmedian %.6f\nvertices %zu\n", seconds.front(), seconds[seconds.size() / 2], vertices);
  return 0;
}
