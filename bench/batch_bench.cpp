// Whole trees: zt2export --batch -j 2 against a shell loop of single
// zt2export runs over the same tree, in the same run, and the cost of a
// second batch run over the unchanged tree against the first.
//
//   batch_bench [--scenes=N] [--large=N] [--jobs=N] [--grid=N] [--rounds=N] [--dir=PATH]
//
// The tree is made under --dir (default: the temporary directory). Every
// save flushes its file to the disk, and one disk's journal takes those
// flushes one after the other: on a disk, the exports' flushes rather than
// the processors bound how many run at once. A directory in memory
// (--dir=/dev/shm) shows what the batch does with the processors.
//
// The tree holds N small scenes (the bundled example, each beside the
// example's textures) and `large` scenes of one grid mesh of 2 x grid x grid
// triangles. A round runs the loop, a first batch into an empty directory
// and a second batch over it, one after the other, so that a change in the
// machine's other load falls on all three alike; each figure is the median
// of the rounds' wall times, each ratio the median of the rounds' ratios.
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench_support.h"

namespace fs = std::filesystem;

namespace {

std::string gridScene(int n) {
  std::ostringstream s;
  // Every node with a skin, as the exporter's default options want: the grid's
  // vertices all follow one bone.
  s << R"({"version": 1, "nodes": [{"name": "Root", "object": {"type": "helper"}, "modifiers": [{"type": "physique"}]},)"
    << R"({"name": "Grid", "material": {"type": "ztMaterial", "name": "Ground"}, "modifiers": [{"type": "physique", )"
    << R"("vertices": [)";
  for (int v = 0; v < (n + 1) * (n + 1); ++v) s << (v ? "," : "") << "\"Root\"";
  s << R"(]}], "object": {"type": "mesh", "mesh": {"vertices": [)";
  for (int y = 0; y <= n; ++y)
    for (int x = 0; x <= n; ++x) s << (x || y ? "," : "") << x << "," << y << "," << ((x * 7 + y * 3) % 5);
  s << R"(], "faces": [)";
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const int a = y * (n + 1) + x, b = a + 1, c = a + n + 1, d = c + 1;
      s << (x || y ? "," : "") << a << "," << b << "," << d << "," << a << "," << d << "," << c;
    }
  s << "]}}}]}\n";
  return s.str();
}

double processorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

// Wall time of one run; `processor` receives the processor time of the run
// and every process it started.
double secondsOf(const std::vector<std::string>& argv, double* processor = nullptr) {
  const double processorBefore = processorSeconds();
  const auto start = std::chrono::steady_clock::now();
  const int status = bench::runQuietly(argv);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (processor != nullptr) *processor = processorSeconds() - processorBefore;
  if (status != 0) {
    std::fprintf(stderr, "batch_bench: %s ... exited with %d\n", argv[0].c_str(), status);
    std::exit(1);  // the tree stays, with the loop's messages in loop.log
  }
  return seconds;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

long option(int argc, char** argv, const std::string& name, long fallback) {
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]).rfind("--" + name + "=", 0) == 0) return std::atol(argv[i] + name.size() + 3);
  return fallback;
}

}  // namespace

int main(int argc, char** argv) {
  const long scenes = option(argc, argv, "scenes", 1000), large = option(argc, argv, "large", 20);
  const long jobs = option(argc, argv, "jobs", 2), grid = option(argc, argv, "grid", 150);
  const long rounds = std::max(1L, option(argc, argv, "rounds", 3));
  fs::path base = fs::temp_directory_path();
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]).rfind("--dir=", 0) == 0) base = argv[i] + 6;
  const fs::path root = base / ("ztx-batch-bench-" + std::to_string(::getpid()));
  const fs::path src = root / "src";
  fs::create_directories(src);
  fs::copy(ZTX_SOURCE_DIR "/examples/textures", src / "textures");
  const fs::path example = ZTX_SOURCE_DIR "/examples/example.scene.json";
  char name[64];
  for (long i = 0; i < scenes; ++i) {
    std::snprintf(name, sizeof name, "small%04ld.scene.json", i);
    fs::copy_file(example, src / name);
  }
  const std::string big = gridScene(static_cast<int>(grid));
  for (long i = 0; i < large; ++i) {
    std::snprintf(name, sizeof name, "large%02ld.scene.json", i);
    std::ofstream(src / name) << big;
  }
  const std::string config = (root / "config").string();

  // The loop a user writes today: one zt2export per file, one after another.
  const std::string log = (root / "loop.log").string();
  const std::string loop = "for f in '" + src.string() + "'/*.scene.json; do b=$(basename \"$f\" .scene.json); '" +
                           ZTX_ZT2EXPORT "' \"$f\" -o '" + (root / "loop").string() +
                           "'/\"$b\".zt2 --config-dir '" + config + "' --quiet >/dev/null 2>>'" + log +
                           "' || { echo \"$f failed\" >>'" + log + "'; exit 1; }; done";
  const std::vector<std::string> batch = {ZTX_ZT2EXPORT, "--batch",      src.string(),          "-o",
                                          (root / "batch").string(),    "--config-dir", config, "-j",
                                          std::to_string(jobs),         "--quiet"};
  std::vector<double> loops, firsts, seconds, speedups, upToDateShares, loopCpu, batchCpu;
  for (long round = 0; round < rounds; ++round) {
    fs::remove_all(root / "loop");
    fs::remove_all(root / "batch");
    fs::create_directories(root / "loop");
    double cpu = 0;
    loops.push_back(secondsOf({"/bin/sh", "-c", loop}, &cpu));
    loopCpu.push_back(cpu);
    firsts.push_back(secondsOf(batch, &cpu));
    batchCpu.push_back(cpu);
    seconds.push_back(secondsOf(batch));
    speedups.push_back(loops.back() / firsts.back());
    upToDateShares.push_back(seconds.back() / firsts.back());
  }
  fs::remove_all(root);
  const double loopSeconds = median(loops), firstSeconds = median(firsts), secondSeconds = median(seconds);

  const double files = static_cast<double>(scenes + large);
  std::printf("tree: %ld small scenes, %ld scenes of %ld triangles, in %s\n", scenes, large, 2 * grid * grid,
              base.c_str());
  std::printf("shell loop of single runs   %8.2f s  %7.1f ms/file\n", loopSeconds, loopSeconds / files * 1e3);
  std::printf("--batch -j %ld (first run)   %8.2f s  %7.1f ms/file\n", jobs, firstSeconds, firstSeconds / files * 1e3);
  std::printf("--batch -j %ld (up to date)  %8.2f s  %7.1f ms/file\n", jobs, secondSeconds,
              secondSeconds / files * 1e3);
  // What the batch adds to the work itself, whatever share of the machine it got.
  std::printf("processor time per file: loop %.1f ms, --batch %.1f ms (%.2fx)\n", median(loopCpu) / files * 1e3,
              median(batchCpu) / files * 1e3, median(batchCpu) / median(loopCpu));
  std::printf("throughput of --batch against the loop: %.2fx (median of %ld rounds)\n", median(speedups), rounds);
  std::printf("up-to-date run against the first: %.1f%%\n", 100.0 * median(upToDateShares));
  return 0;
}
