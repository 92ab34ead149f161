// Texture copies: the exporter's copy that never overwrites (exclusive create,
// then a read/write loop) against the standard library's std::filesystem::
// copy_file of the same file, which may use the kernel's in-place copy.
// Images of 64 KiB (a typical texture) and 32 MiB (a large one); the source
// stays in the page cache, so both measure the copy, not the disk.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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
  SceneExporter exporter;
  exporter.textureCopyDirectory = (w.dir / "copies").string();
  const std::string destination = (w.dir / "copies" / "image.bin").string();
  for (auto _ : state) {
    copyTexture(exporter, destination, w.source.string());
    // The copy is staged; a saved scene file puts it in place.
    const std::string committed = exporter.staging.commit();
    state.PauseTiming();
    if (exporter.hasError() || !committed.empty()) state.SkipWithError("copy failed");
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

}  // namespace

BENCHMARK(BM_CopyTexture)->Arg(64 << 10)->Arg(32 << 20)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_FilesystemCopyFile)->Arg(64 << 10)->Arg(32 << 20)->Unit(benchmark::kMicrosecond)->UseRealTime();

BENCHMARK_MAIN();
