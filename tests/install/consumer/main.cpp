#include <cstdio>

#include <ztexport/reader.h>

int main(int, char** argv) {
  const ztexport::Scene scene = ztexport::readScene(argv[1]);
  std::size_t vertices = 0;
  for (const ztexport::Mesh& mesh : scene.meshes) vertices += mesh.positions.size();
  std::printf("%zu nodes, %zu meshes, %zu vertices\n", scene.nodes().size(), scene.meshes.size(), vertices);
}
