// Animation export speed. Reports, as medians of the repetitions, the time
// per sample ("per_sample") of:
//
// - recording and reducing one transform track: a node standing still, a
//   straight move (every sample interpolates well, the reduction's worst
//   case, quadratic in the run's length, so it runs at three lengths), a
//   constant turn in normalized mode, and a jittering track that keeps most
//   samples;
// - the whole animation pass over a scene of 100 keyed nodes (position,
//   rotation, visibility; 10 of them lights with a keyed multiplier) and
//   1001 frames, per node and sample, with the size of what it wrote.
//
// Times are processor time of the one thread: the figures stay comparable on
// a machine that is busy with other work.
//
//   anim_bench [benchmark flags]
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "animation/animation_pass.h"
#include "animation/key_reduction.h"
#include "host/memory/memory_host.h"
#include "plugin/scene_exporter.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
const MatrixKeyTolerance kTolerance{0.001, 0.001};  // the dialog's defaults

SampleMatrix translation(double x, double y, double z) { return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {x, y, z}}}; }

SampleMatrix turn(double radians) {
  const double c = std::cos(radians), s = std::sin(radians);
  return {{{c, 0, -s}, {0, 1, 0}, {s, 0, c}, {0, 0, 0}}};
}

// A deterministic jitter in [-0.5, 0.5).
double jitter(int i) { return double((i * 7919) % 1000) / 1000.0 - 0.5; }

using TrackMaker = SampleMatrix (*)(int i);

SampleMatrix still(int) { return translation(1, 2, 3); }
SampleMatrix straight(int i) { return translation(i * 0.1, 0, -i * 0.05); }
SampleMatrix turning(int i) { return turn(i * kPi / 180.0); }
SampleMatrix jittering(int i) { return translation(i * 0.1 + jitter(i) * 0.01, jitter(i + 1) * 0.01, 0); }

void reduceTrack(benchmark::State& state, TrackMaker make, FrameInterpolation mode) {
  const int n = static_cast<int>(state.range(0));
  std::vector<SampleMatrix> samples;
  samples.reserve(n);
  for (int i = 0; i < n; ++i) samples.push_back(make(i));
  std::size_t keys = 0;
  for (auto _ : state) {
    KeySeries<SampleMatrix> recorded;
    recorded.reserve(100);
    for (int i = 0; i < n; ++i) recordSample(recorded, samples[i], i);
    const KeySeries<SampleMatrix> kept = reduceKeys(recorded, kTolerance, mode, false);
    keys = kept.size();
    benchmark::DoNotOptimize(kept.values.data());
  }
  state.counters["keys"] = double(keys);
  state.counters["per_sample"] =
      benchmark::Counter(double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_ReduceStill(benchmark::State& state) { reduceTrack(state, still, FrameInterpolation::None); }
void BM_ReduceStraightMove(benchmark::State& state) { reduceTrack(state, straight, FrameInterpolation::None); }
void BM_ReduceTurnNormalized(benchmark::State& state) { reduceTrack(state, turning, FrameInterpolation::Normalized); }
void BM_ReduceJitter(benchmark::State& state) { reduceTrack(state, jittering, FrameInterpolation::None); }

void medianOfFive(benchmark::internal::Benchmark* b) { b->Repetitions(5)->ReportAggregatesOnly(true); }

BENCHMARK(BM_ReduceStill)->Arg(1000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);
BENCHMARK(BM_ReduceStraightMove)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);
BENCHMARK(BM_ReduceTurnNormalized)->Arg(1000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);
BENCHMARK(BM_ReduceJitter)->Arg(1000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);

// --- the whole pass ---

constexpr int kNodes = 100;
constexpr int kFrames = 1000;

// A track keyed every `every` frames with value(node, frame).
std::string keyed(int node, int every, std::string (*value)(int, int)) {
  std::string keys;
  for (int f = 0; f <= kFrames; f += every) {
    if (!keys.empty()) keys += ", ";
    keys += R"({"frame": )" + std::to_string(f) + R"(, "value": )" + value(node, f) + "}";
  }
  return R"({"keys": [)" + keys + "]}";
}

std::string positionAt(int node, int f) {
  return "[" + std::to_string(node + f * 0.01) + ", " + std::to_string(std::sin(f * 0.05 + node)) + ", " +
        std::to_string(jitter(node * 31 + f)) + "]";
}

std::string rotationAt(int node, int f) {
  return R"({"eulerDegrees": [0, 0, )" + std::to_string((node * 13 + f) % 360) + "]}";
}

std::string visibilityAt(int, int f) { return (f / 100) % 2 == 0 ? "1" : "0.5"; }

std::string multiplierAt(int node, int f) { return std::to_string(1.0 + 0.5 * std::sin(f * 0.1 + node)); }

std::string passScene() {
  std::string nodes;
  for (int n = 0; n < kNodes; ++n) {
    if (n > 0) nodes += ",\n";
    const std::string object = n % 10 == 0
                                   ? R"({"type": "light", "lightType": "spot", "multiplier": )" +
                                         keyed(n, 5, multiplierAt) + "}"
                                   : R"({"type": "helper"})";
    nodes += R"({"name": "N)" + std::to_string(n) + R"(", "object": )" + object +
             R"(, "transform": {"position": )" + keyed(n, 10, positionAt) + R"(, "rotation": )" +
             keyed(n, 25, rotationAt) + R"(}, "visibility": )" + keyed(n, 50, visibilityAt) + "}";
  }
  return R"({"frameRate": 30, "animationRange": [0, )" + std::to_string(kFrames) + R"(], "nodes": [)" + nodes + "]}";
}

void BM_AnimationPass(benchmark::State& state) {
  const auto host = hostmodel::loadSceneFromString(passScene(), ".");
  std::size_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto exporter = std::make_unique<SceneExporter>();
    exporter->host = host.get();
    exporter->ticksPerFrame = host->GetTicksPerFrame();
    exporter->options.startFrame = 0;
    exporter->options.endFrame = kFrames;
    exporter->options.positionDelta = 0.001f;
    exporter->options.rotationDelta = 0.001f;
    exporter->progressTotal = kNodes;
    state.ResumeTiming();
    exportSceneAnimation(*exporter);
    bytes = exporter->sceneFile.getSize();
  }
  const double samples = double(kNodes) * (kFrames + 1);
  state.counters["file_bytes"] = double(bytes);
  state.counters["per_sample"] =
      benchmark::Counter(samples, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_AnimationPass)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);

}  // namespace

BENCHMARK_MAIN();
