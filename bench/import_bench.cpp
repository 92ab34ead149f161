// Model import speed and memory: a generated heightfield of about half a
// million triangles (positions, normals, UVs; one smooth surface cut by hard
// creases every 50 quads) is exported with zt2export from OBJ and from glTF,
// beside assimp's command-line tool turning the same file into binary glTF, in
// the same run. Reports the medians of wall time, of processor time (user and
// system, all processes of the run) and of peak memory, and the ratios
// zt2export / assimp. Peak memory is the largest sum of the resident sizes of
// the run's processes (zt2export and its model reader), sampled every
// millisecond in runs of their own, so that sampling costs the timed runs
// nothing.
//
//   import_bench [benchmark flags]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <algorithm>
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

struct Measured {
  int exitCode = -1;
  double cpuMs = 0;     // user and system time of the process and its children
  long peakKiB = 0;     // the largest sampled sum of resident sizes, when sampled
};

// The process and its descendants: the children of each of its threads.
void processTree(pid_t pid, std::vector<pid_t>& out) {
  out.push_back(pid);
  std::error_code ec;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", ec)) {
    std::ifstream children(task.path() / "children");
    for (pid_t child; children >> child;) processTree(child, out);
  }
}

long residentKiB(pid_t pid) {
  std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Runs a program with its output discarded; with `sample`, adds up the
// resident sizes of its process tree every millisecond until it ends.
Measured runMeasured(const std::vector<std::string>& argv, bool sample) {
  Measured m;
  const pid_t pid = bench::spawnQuietly(argv);
  if (pid < 0) return m;
  int status = 0;
  rusage usage{};
  for (;;) {
    const pid_t done = ::wait4(pid, &status, sample ? WNOHANG : 0, &usage);
    if (done == pid) break;
    std::vector<pid_t> tree;
    processTree(pid, tree);
    long sum = 0;
    for (pid_t p : tree) sum += residentKiB(p);
    m.peakKiB = std::max(m.peakKiB, sum);
    ::usleep(1000);
  }
  m.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  m.cpuMs = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
  return m;
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

std::vector<std::string> zt2exportCommand(const char* model) {
  const std::string& dir = dataDir();
  return {ZTX_ZT2EXPORT, dir + "/" + model, "-o", dir + "/out.zt2", "--config-dir", dir + "/config", "--quiet"};
}

std::vector<std::string> assimpCommand(const char* model) {
  const std::string& dir = dataDir();
  return {"assimp", "export", dir + "/" + model, dir + "/out.glb"};
}

void timed(benchmark::State& state, const std::vector<std::string>& command) {
  for (auto _ : state) {
    const Measured m = runMeasured(command, false);
    if (m.exitCode != 0) state.SkipWithError((command[0] + " failed (assimp: Debian package assimp-utils)").c_str());
    state.counters["cpu_ms"] = m.cpuMs;
  }
}

void BM_Zt2ExportObj(benchmark::State& s) { timed(s, zt2exportCommand("field.obj")); }
void BM_AssimpObjToGlb(benchmark::State& s) { timed(s, assimpCommand("field.obj")); }
void BM_Zt2ExportGltf(benchmark::State& s) { timed(s, zt2exportCommand("field.gltf")); }
void BM_AssimpGltfToGlb(benchmark::State& s) { timed(s, assimpCommand("field.gltf")); }
BENCHMARK(BM_Zt2ExportObj)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_AssimpObjToGlb)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_Zt2ExportGltf)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_AssimpGltfToGlb)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// The median of three sampled runs' peaks, in MiB.
double peakMiB(const std::vector<std::string>& command) {
  std::vector<long> peaks;
  for (int i = 0; i < 3; ++i) peaks.push_back(runMeasured(command, true).peakKiB);
  std::sort(peaks.begin(), peaks.end());
  return peaks[1] / 1024.0;
}

// Medians of the processor time counter, kept beside the wall times.
class CpuCollector : public bench::MedianCollector {
 public:
  std::map<std::string, double> cpuMs;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs)
      if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median")
        if (const auto c = r.counters.find("cpu_ms"); c != r.counters.end()) cpuMs[r.run_name.function_name] = c->second;
    MedianCollector::ReportRuns(runs);
  }
};

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
  CpuCollector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  std::printf("\nHeightfield: %d triangles\n", kQuads * kQuads * 2);
  for (const auto& [ours, theirs, model] : {std::tuple{"BM_Zt2ExportObj", "BM_AssimpObjToGlb", "field.obj"},
                                            {"BM_Zt2ExportGltf", "BM_AssimpGltfToGlb", "field.gltf"}}) {
    const auto a = reporter.medianNs.find(ours), b = reporter.medianNs.find(theirs);
    if (a == reporter.medianNs.end() || b == reporter.medianNs.end()) continue;
    const double ca = reporter.cpuMs[ours], cb = reporter.cpuMs[theirs];
    const double ma = peakMiB(zt2exportCommand(model)), mb = peakMiB(assimpCommand(model));
    std::printf("%s: zt2export %.0f ms (cpu %.0f ms, peak %.0f MiB), assimp to GLB %.0f ms (cpu %.0f ms, peak %.0f MiB)"
                "; ratios: time %.3f, cpu %.3f, peak memory %.3f\n",
                model, a->second / 1e6, ca, ma, b->second / 1e6, cb, mb, a->second / b->second, ca / cb, ma / mb);
  }
  std::error_code ec;
  std::filesystem::remove_all(dataDir(), ec);
  return 0;
}
