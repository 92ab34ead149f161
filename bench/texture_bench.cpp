// Texture copies: the exporter's copy that never overwrites (exclusive create,
// then a read/write loop) against the standard library's std::filesystem::
// copy_file of the same file, which may use the kernel's in-place copy.
// Images of 64 KiB (a typical texture) and 32 MiB (a large one); the source
// stays in the page cache, so both measure the copy, not the disk.
//
// Image lists: one texture whose image list has 1,000, 10,000 and 100,000
// entries naming 16 small images in turn, converted by exportTexture with
// copying on (the list read, every frame loaded, names listed, copies made
// once). The summary prints the time per entry at 100,000 over that at 1,000
// (1 is linear) and the time of the 100,000 entries (goal < 1 s), both in
// processor time.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "host/memory/memory_host.h"
#include "materials/material_records.h"
#include "materials/texture_export.h"
#include "plugin/scene_exporter.h"

namespace fs = std::filesystem;

namespace {

struct Workspace {
  fs::path dir;
  fs::path source;

  explicit Workspace(std::size_t bytes) {
    dir = fs::temp_directory_path() / ("ztx-texture-bench-" + std::to_string(bytes));
    fs::remove_all(dir);
    fs::create_directories(dir / "copies");
    source = dir / "image.bin";
    std::vector<char> data(bytes);
    for (std::size_t i = 0; i < bytes; ++i) data[i] = static_cast<char>((i * 2654435761u) >> 24);
    std::ofstream(source, std::ios::binary).write(data.data(), static_cast<std::streamsize>(data.size()));
  }
  ~Workspace() { fs::remove_all(dir); }
};

void BM_CopyTexture(benchmark::State& state) {
  Workspace w(static_cast<std::size_t>(state.range(0)));
  // The copy tells the host which copies it used: an empty scene stands in.
  auto host = hostmodel::loadSceneFromString("{}", w.dir.string());
  SceneExporter exporter;
  exporter.host = host.get();
  // The copy directory is found from the exported file's folder and the texture path.
  exporter.writtenPath = w.dir.string() + "/";
  exporter.options.texturePath = "copies";
  exporter.textureCopyDirectory = (w.dir / "copies").string();
  const std::string destination = (w.dir / "copies" / "image.bin").string();
  for (auto _ : state) {
    copyTexture(exporter, destination, w.source.string());
    // The copy is staged; a saved scene file puts it in place.
    const Result<void> committed = exporter.staging.commit();
    state.PauseTiming();
    if (exporter.hasError() || !committed) state.SkipWithError("copy failed");
    fs::remove(destination);
    exporter.infoLog.clear();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void BM_FilesystemCopyFile(benchmark::State& state) {
  Workspace w(static_cast<std::size_t>(state.range(0)));
  const fs::path destination = w.dir / "copies" / "image.bin";
  for (auto _ : state) {
    std::error_code ec;
    fs::copy_file(w.source, destination, fs::copy_options::none, ec);
    state.PauseTiming();
    if (ec) state.SkipWithError("copy failed");
    fs::remove(destination);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// A 1x1 PNG.
const unsigned char kPixel[] = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52, 0x00, 0x00,
    0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x02, 0x00, 0x00, 0x00, 0x90, 0x77, 0x53, 0xde, 0x00, 0x00, 0x00,
    0x0c, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0xf8, 0xcf, 0xc0, 0x00, 0x00, 0x03, 0x01, 0x01, 0x00, 0xc9,
    0xfe, 0x92, 0xef, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

void BM_ImageList(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  const fs::path dir = fs::temp_directory_path() / ("ztx-image-list-bench-" + std::to_string(entries));
  fs::remove_all(dir);
  fs::create_directories(dir / "img");
  constexpr int kImages = 16;
  for (int i = 0; i < kImages; ++i)
    std::ofstream(dir / "img" / ("frame" + std::to_string(i) + ".png"), std::ios::binary)
        .write(reinterpret_cast<const char*>(kPixel), sizeof kPixel);
  {
    std::ofstream list(dir / "img" / "sequence.ifl", std::ios::binary);
    for (int i = 0; i < entries; ++i) list << "frame" << (i % kImages) << ".png\n";
  }
  const std::string scene =
      R"({"texmaps": [{"id": "t", "type": "ztTexture", "params": {"mapFileName": "img/sequence.ifl"}}]})";
  std::size_t names = 0;
  for (auto _ : state) {
    state.PauseTiming();
    // A fresh host each time: nothing of the list or its images is known yet.
    auto host = hostmodel::loadSceneFromString(scene, dir.string());
    SceneExporter exporter;
    exporter.host = host.get();
    exporter.options.copyTextures = true;
    exporter.writtenPath = dir.string() + "/";
    exporter.options.texturePath = "copies";
    exporter.textureCopyDirectory = (dir / "copies").string();
    TextureRecord record;
    state.ResumeTiming();
    exportTexture(exporter, record, *host->findTexmap("t"));
    names = record.fileNames.size();
    if (exporter.hasError()) state.SkipWithError("an entry failed to load");
  }
  state.counters["names"] = double(names);
  state.counters["per_entry"] =
      benchmark::Counter(double(entries), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  fs::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_ImageList)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_CopyTexture)->Arg(64 << 10)->Arg(32 << 20)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_FilesystemCopyFile)->Arg(64 << 10)->Arg(32 << 20)->Unit(benchmark::kMicrosecond)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // Processor time (system calls included): the machine's other work moves it little.
  bench::MedianCollector reporter(bench::MedianCollector::Time::Cpu);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  const auto small = reporter.medianNs.find("BM_ImageList/1000");
  const auto large = reporter.medianNs.find("BM_ImageList/100000");
  if (small != reporter.medianNs.end() && large != reporter.medianNs.end())
    std::printf("\nImage list: time per entry at 100,000 entries over that at 1,000: %.3f; 100,000 entries in %.3f s "
                "(goal < 1 s)\n",
                (large->second / 100000) / (small->second / 1000), large->second / 1e9);
  return 0;
}
