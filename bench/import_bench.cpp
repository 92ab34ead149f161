// Model import speed: a generated heightfield of about half a million
// triangles (positions, normals, UVs; one smooth surface cut by hard creases
// every 50 quads) is exported with zt2export from OBJ and from glTF, beside
// assimp's command-line tool turning the same file into binary glTF, in the
// same run. Reports the medians and the ratios zt2export / assimp.
//
//   import_bench [benchmark flags]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "bench/bench_support.h"

namespace {

constexpr int kQuads = 500;   // per side: 500 x 500 quads, 500,000 triangles
constexpr int kCrease = 50;   // quads between hard creases


// The heightfield as OBJ. Each tile of kCrease x kCrease quads has its own
// vertices and normals along its border, so that tiles meet at hard edges.
void writeObj(const std::string& path) {
  std::ofstream out(path);
  out << "o field\n";
  const int tiles = kQuads / kCrease, side = kCrease + 1;
  auto height = [](double x, double y) { return 0.3 * std::sin(x * 0.05) * std::cos(y * 0.07); };
  for (int ty = 0; ty < tiles; ++ty)
    for (int tx = 0; tx < tiles; ++tx)
      for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i) {
          const double x = tx * kCrease + i, y = ty * kCrease + j;
          // The normal of the tile's own tilt, so that neighbouring tiles differ.
          const double nx = -0.3 * 0.05 * std::cos(x * 0.05) * std::cos(y * 0.07) + 0.01 * tx;
          const double ny = 0.3 * 0.07 * std::sin(x * 0.05) * std::sin(y * 0.07) + 0.01 * ty;
          const double l = std::sqrt(nx * nx + ny * ny + 1);
          out << "v " << x << ' ' << height(x, y) << ' ' << -y << "\nvn " << nx / l << ' ' << 1 / l << ' ' << -ny / l
              << "\nvt " << x / kQuads << ' ' << y / kQuads << '\n';
        }
  for (int t = 0; t < tiles * tiles; ++t)
    for (int j = 0; j < kCrease; ++j)
      for (int i = 0; i < kCrease; ++i) {
        const int base = t * side * side + 1;
        const int a = base + j * side + i, b = a + 1, c = a + side + 1, d = a + side;
        out << "f " << a << '/' << a << '/' << a << ' ' << b << '/' << b << '/' << b << ' ' << c << '/' << c << '/'
            << c << "\nf " << a << '/' << a << '/' << a << ' ' << c << '/' << c << '/' << c << ' ' << d << '/' << d
            << '/' << d << '\n';
      }
}

const std::string& dataDir() {
  static const std::string dir = [] {
    const std::filesystem::path d = std::filesystem::temp_directory_path() / "ztx_import_bench";
    std::filesystem::create_directories(d / "config");
    writeObj((d / "field.obj").string());
    // The same model as glTF, made by the reference tool itself.
    if (bench::runQuietly({"assimp", "export", (d / "field.obj").string(), (d / "field.gltf").string()}) != 0)
      std::fprintf(stderr, "import_bench: assimp could not write the glTF model\n");
    return d.string();
  }();
  return dir;
}

void zt2export(benchmark::State& state, const char* model) {
  const std::string& dir = dataDir();
  for (auto _ : state)
    if (bench::runQuietly({ZTX_ZT2EXPORT, dir + "/" + model, "-o", dir + "/out.zt2", "--config-dir", dir + "/config",
                    "--quiet"}) != 0)
      state.SkipWithError("zt2export failed");
}

void assimpToGlb(benchmark::State& state, const char* model) {
  const std::string& dir = dataDir();
  for (auto _ : state)
    if (bench::runQuietly({"assimp", "export", dir + "/" + model, dir + "/out.glb"}) != 0)
      state.SkipWithError("assimp failed (Debian package assimp-utils)");
}

void BM_Zt2ExportObj(benchmark::State& s) { zt2export(s, "field.obj"); }
void BM_AssimpObjToGlb(benchmark::State& s) { assimpToGlb(s, "field.obj"); }
void BM_Zt2ExportGltf(benchmark::State& s) { zt2export(s, "field.gltf"); }
void BM_AssimpGltfToGlb(benchmark::State& s) { assimpToGlb(s, "field.gltf"); }
BENCHMARK(BM_Zt2ExportObj)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_AssimpObjToGlb)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_Zt2ExportGltf)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_AssimpGltfToGlb)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);


}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> args(argv, argv + argc);
  static char repetitions[] = "--benchmark_repetitions=3";
  static char aggregatesOnly[] = "--benchmark_report_aggregates_only=true";
  args.push_back(repetitions);
  args.push_back(aggregatesOnly);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  dataDir();
  bench::MedianCollector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  std::printf("\nHeightfield: %d triangles\n", kQuads * kQuads * 2);
  for (const auto& [ours, theirs, what] :
       {std::tuple{"BM_Zt2ExportObj", "BM_AssimpObjToGlb", "OBJ"}, {"BM_Zt2ExportGltf", "BM_AssimpGltfToGlb", "glTF"}}) {
    const auto a = reporter.medianNs.find(ours), b = reporter.medianNs.find(theirs);
    if (a != reporter.medianNs.end() && b != reporter.medianNs.end())
      std::printf("%s: zt2export %.0f ms, assimp to GLB %.0f ms, ratio %.3f\n", what, a->second / 1e6, b->second / 1e6,
                  a->second / b->second);
  }
  std::error_code ec;
  std::filesystem::remove_all(dataDir(), ec);
  return 0;
}
