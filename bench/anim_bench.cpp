// Animation export speed. Reports, as medians of the repetitions, the time
// per sample ("per_sample") of:
//
// - recording and reducing one transform track: a node standing still, a
//   straight move (every sample interpolates well: the rule tried entry by
//   entry is quadratic in the run's length, the bounded search linear; from
//   100 to 100,000 samples, and the entry-by-entry reference up to 10,000), a
//   constant turn in normalized mode, and a jittering track that keeps most
//   samples;
// - the whole animation pass over one node on a straight ramp of 10,000 and
//   100,000 frames (the summary prints the time per frame at 100,000 over that
//   at 10,000, 1 being linear);
// - a scene of 1,000 nodes over 1,000 frames (1,001 samples each): smooth
//   motion, holds, visibility steps, ten chains 20 deep, ten lights with a
//   keyed multiplier and colour. Per node-frame: sampling (transform and
//   visibility, as the pass samples them), reduction (of those samples), and
//   the whole animation pass; then the same scene with every tenth free node
//   on one long linear ramp, the reduction's quadratic worst case. The
//   summary at the end adds the peak heap of one pass over each scene;
// - the growth of each frame-to-frame mode's reduction on a steady turn of
//   90 degrees per 50,000 frames (one run, which the rule tried entry by
//   entry makes quadratic) at 10,000, 20,000 and 50,000 frames;
// - the keys kept by the rule and by --key-error-bound (reduceKeysWithinBound),
//   with the largest error each leaves (counters rule_keys, bound_keys,
//   rule_error, bound_error), on a slow steady turn (90 degrees over 1,000
//   frames), on this benchmark's scene, and on the flag of the tests, made
//   into a scene file by zt2export --write-scene and sampled at 120 per second.
//
// Times are processor time of the one thread: the figures stay comparable on
// a machine that is busy with other work. Every timed iteration gets a freshly
// loaded scene, so the host model's cache of evaluated transforms starts empty.
//
//   anim_bench [benchmark flags]
//   anim_bench --write-scene=anim.json          the typical scene as a scene file
//   anim_bench --write-scene=anim.json --ramps  the worst case
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "support/flag_model.h"
#include "support/test_support.h"
#include "animation/animation_pass.h"
#include "animation/key_reduction.h"
#include "animation/sample_span.h"
#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/memory/memory_node.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

// --- heap accounting: bytes live and their peak, for the summary ---

namespace {
std::atomic<std::size_t> gHeapLive{0};
std::atomic<std::size_t> gHeapPeak{0};

void* counted(std::size_t n) {
  void* p = std::malloc(n == 0 ? 1 : n);
  if (!p) throw std::bad_alloc();
  const std::size_t live = gHeapLive += malloc_usable_size(p);
  std::size_t peak = gHeapPeak.load();
  while (live > peak && !gHeapPeak.compare_exchange_weak(peak, live)) {
  }
  return p;
}

void uncounted(void* p) noexcept {
  if (!p) return;
  gHeapLive -= malloc_usable_size(p);
  std::free(p);
}
}  // namespace

void* operator new(std::size_t n) { return counted(n); }
void* operator new[](std::size_t n) { return counted(n); }
void operator delete(void* p) noexcept { uncounted(p); }
void operator delete[](void* p) noexcept { uncounted(p); }
void operator delete(void* p, std::size_t) noexcept { uncounted(p); }
void operator delete[](void* p, std::size_t) noexcept { uncounted(p); }

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

KeySeries<SampleMatrix> recordTrack(TrackMaker make, int n) {
  KeySeries<SampleMatrix> recorded;
  for (int i = 0; i < n; ++i) recordSample(recorded, make(i), i);
  return recorded;
}

void reduceTrack(benchmark::State& state, TrackMaker make, FrameInterpolation mode, bool entryByEntry = false) {
  const int n = static_cast<int>(state.range(0));
  std::vector<SampleMatrix> samples;
  samples.reserve(n);
  for (int i = 0; i < n; ++i) samples.push_back(make(i));
  std::size_t keys = 0;
  for (auto _ : state) {
    KeySeries<SampleMatrix> recorded;
    recorded.reserve(100);
    for (int i = 0; i < n; ++i) recordSample(recorded, samples[i], i);
    const KeySeries<SampleMatrix> kept = entryByEntry ? reduceKeysEntryByEntry(recorded, kTolerance, mode, false)
                                                      : reduceKeys(recorded, kTolerance, mode, false);
    keys = kept.size();
    benchmark::DoNotOptimize(kept.values.data());
  }
  state.counters["keys"] = double(keys);
  state.counters["per_sample"] =
      benchmark::Counter(double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_ReduceStill(benchmark::State& state) { reduceTrack(state, still, FrameInterpolation::None); }
void BM_ReduceStraightMove(benchmark::State& state) { reduceTrack(state, straight, FrameInterpolation::None); }
void BM_ReduceStraightMoveEntryByEntry(benchmark::State& state) {
  reduceTrack(state, straight, FrameInterpolation::None, true);
}
void BM_ReduceTurnNormalized(benchmark::State& state) { reduceTrack(state, turning, FrameInterpolation::Normalized); }
void BM_ReduceJitter(benchmark::State& state) { reduceTrack(state, jittering, FrameInterpolation::None); }

void medianOfFive(benchmark::internal::Benchmark* b) { b->Repetitions(5)->ReportAggregatesOnly(true); }

BENCHMARK(BM_ReduceStill)->Arg(1000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);
BENCHMARK(BM_ReduceStraightMove)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)
    ->Apply(medianOfFive);
BENCHMARK(BM_ReduceStraightMoveEntryByEntry)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);
BENCHMARK(BM_ReduceTurnNormalized)->Arg(1000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);
BENCHMARK(BM_ReduceJitter)->Arg(1000)->Unit(benchmark::kMicrosecond)->Apply(medianOfFive);

// A steady turn of 90 degrees per 50,000 frames: the rule keeps one run over
// the whole track in every mode.
SampleMatrix slowTurning(int i) { return turn(i * (kPi / 2) / 50000.0); }

// Argument 0: the mode (0 none, 1 normalised, 2 orthonormalised, 3
// normalised with kept scaling); 1: the frames.
void BM_TurnGrowth(benchmark::State& state) {
  const int mode = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
  const KeySeries<SampleMatrix> recorded = recordTrack(slowTurning, n);
  const FrameInterpolation modes[] = {FrameInterpolation::None, FrameInterpolation::Normalized,
                                      FrameInterpolation::Orthonormalized, FrameInterpolation::Normalized};
  std::size_t keys = 0;
  for (auto _ : state) {
    const KeySeries<SampleMatrix> kept = reduceKeys(recorded, kTolerance, modes[mode], mode == 3);
    keys = kept.size();
    benchmark::DoNotOptimize(kept.values.data());
  }
  state.counters["keys"] = double(keys);
  state.counters["per_sample"] =
      benchmark::Counter(double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_TurnGrowth)
    ->ArgsProduct({{0, 1, 2, 3}, {10000, 20000, 50000}})
    ->Unit(benchmark::kMillisecond)
    ->Apply(medianOfFive);

// --- the scene of 1,000 nodes ---

constexpr int kFrames = 1000;
constexpr int kSamples = kFrames + 1;
constexpr int kChains = 10;
constexpr int kChainDepth = 20;
constexpr int kLights = 10;
constexpr int kNodes = 1000;
constexpr int kFreeNodes = kNodes - kChains * kChainDepth - kLights;

// A track keyed every `every` frames with value(node, frame).
std::string keyed(int node, int every, std::string (*value)(int, int)) {
  std::string keys;
  for (int f = 0; f <= kFrames; f += every) {
    if (!keys.empty()) keys += ", ";
    keys += R"({"frame": )" + std::to_string(f) + R"(, "value": )" + value(node, f) + "}";
  }
  return R"({"keys": [)" + keys + "]}";
}

std::string number(double x) { return std::to_string(x); }

std::string smoothAt(int node, int f) {
  return "[" + number(node + f * 0.01) + ", " + number(std::sin(f * 0.05 + node)) + ", " +
         number(std::cos(f * 0.03 + node)) + "]";
}

std::string turnAt(int node, int f) { return R"({"eulerDegrees": [0, 0, )" + number((node * 13 + f) % 360) + "]}"; }

// Moves for 50 frames, then stands for 150: a hold key at the end of each stand.
std::string holdingAt(int node, int f) { return "[" + number(node + (f + 150) / 200 * 2.0) + ", 0, 0]"; }

std::string chainTurnAt(int node, int f) {
  return R"({"eulerDegrees": [)" + number(10 * std::sin(f * 0.02 + node)) + ", 0, 0]}";
}

std::string multiplierAt(int node, int f) { return number(1.0 + 0.5 * std::sin(f * 0.1 + node)); }

std::string colourAt(int node, int f) { return "[" + number(0.5 + 0.4 * std::sin(f * 0.02 + node)) + ", 0.8, 0.6]"; }

// Visible and hidden in turns of 100 frames, each change a one-frame step.
std::string visibilitySteps() {
  std::string keys = R"({"frame": 0, "value": 1})";
  for (int f = 100; f < kFrames; f += 100) {
    const char* before = (f / 100) % 2 == 1 ? "1" : "0";
    const char* after = (f / 100) % 2 == 1 ? "0" : "1";
    keys += R"(, {"frame": )" + std::to_string(f - 1) + R"(, "value": )" + before + R"(}, {"frame": )" +
            std::to_string(f) + R"(, "value": )" + after + "}";
  }
  return R"({"keys": [)" + keys + "]}";
}

std::string node(const std::string& name, const std::string& object, const std::string& members,
                 const std::string& children = "") {
  return R"({"name": ")" + name + R"(", "object": )" + object + (members.empty() ? "" : ", " + members) +
         (children.empty() ? "" : R"(, "children": [)" + children + "]") + "}";
}

const char* const kHelper = R"({"type": "helper"})";

// A free node of one of four kinds; with `ramps`, every tenth moves on one
// straight line from the first frame to the last, two keys in all.
std::string freeNode(int n, bool ramps) {
  const std::string name = "F" + std::to_string(n);
  if (ramps && n % 10 == 9)
    return node(name, kHelper,
                R"("transform": {"position": {"keys": [{"frame": 0, "value": [0, 0, 0]}, {"frame": )" +
                    std::to_string(kFrames) + R"(, "value": [100, 50, -20]}]}})");
  switch (n % 4) {
    case 0:
      return node(name, kHelper,
                  R"("transform": {"position": )" + keyed(n, 10, smoothAt) + R"(, "rotation": )" +
                      keyed(n, 25, turnAt) + "}");
    case 1: return node(name, kHelper, R"("transform": {"position": )" + keyed(n, 50, holdingAt) + "}");
    case 2: return node(name, kHelper, R"("visibility": )" + visibilitySteps());
    default: return node(name, kHelper, R"("transform": {"position": [)" + std::to_string(n) + ", 0, 0]}");
  }
}

// A chain of kChainDepth nodes, each turning a little against its parent.
std::string chain(int c, int depth = 0) {
  const int id = c * kChainDepth + depth;
  const std::string children = depth + 1 < kChainDepth ? chain(c, depth + 1) : "";
  return node("C" + std::to_string(c) + "_" + std::to_string(depth), kHelper,
              R"("transform": {"position": [1, 0, 0], "rotation": )" + keyed(id, 20, chainTurnAt) + "}", children);
}

std::string light(int l) {
  const std::string object = R"({"type": "light", "lightType": "spot", "multiplier": )" + keyed(l, 5, multiplierAt) +
                             R"(, "color": )" + keyed(l, 20, colourAt) + "}";
  return node("L" + std::to_string(l), object, R"("transform": {"position": )" + keyed(l, 10, smoothAt) + "}");
}

std::string sceneJson(bool ramps) {
  std::string nodes;
  const auto add = [&](const std::string& n) { nodes += (nodes.empty() ? "" : ",\n") + n; };
  for (int c = 0; c < kChains; ++c) add(chain(c));
  for (int l = 0; l < kLights; ++l) add(light(l));
  for (int n = 0; n < kFreeNodes; ++n) add(freeNode(n, ramps));
  return R"({"frameRate": 30, "animationRange": [0, )" + std::to_string(kFrames) + R"(], "nodes": [)" + nodes + "]}";
}

const std::string& scene(bool ramps) {
  static const std::string typical = sceneJson(false);
  static const std::string worst = sceneJson(true);
  return ramps ? worst : typical;
}

// An export as the driver leaves it for the pass: options of the dialog's
// defaults, animation on, the progress total counted.
struct Setup {
  std::unique_ptr<hostmodel::MemoryHost> host;
  std::unique_ptr<SceneExporter> exporter;
};

// The scene `json` loaded and an exporter set up for its animation pass over
// frames 0 to `endFrame`, as the driver leaves it.
Setup prepareScene(const std::string& json, int endFrame, int progressTotal) {
  Setup s;
  s.host = hostmodel::loadSceneFromString(json, ".");
  s.exporter = std::make_unique<SceneExporter>();
  SceneExporter& e = *s.exporter;
  e.host = s.host.get();
  e.ticksPerFrame = s.host->GetTicksPerFrame();
  e.options.startFrame = 0;
  e.options.endFrame = endFrame;
  e.options.positionDelta = 0.001f;
  e.options.rotationDelta = 0.001f;
  e.progressTotal = progressTotal;
  return s;
}

Setup prepare(bool ramps) { return prepareScene(scene(ramps), kFrames, 2 * (kNodes + 1)); }

void allNodes(INode* n, std::vector<INode*>& out) {
  for (int i = 0; i < n->NumberOfChildren(); ++i) {
    out.push_back(n->GetChildNode(i));
    allNodes(n->GetChildNode(i), out);
  }
}

SampleMatrix widen(const M_Matrix4x3Template<float>& m) {
  SampleMatrix w;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) w[r][c] = m[r][c];
  return w;
}

struct Recorded {
  std::vector<KeySeries<SampleMatrix>> transforms;
  std::vector<KeySeries<float>> visibility;
};

// The transform and visibility sampling of the pass, node by node in the
// order of its walk: what the pass costs before any reduction.
Recorded sampleAll(SceneExporter& e) {
  std::vector<INode*> nodes;
  allNodes(e.host->GetRootNode(), nodes);
  Recorded out;
  out.transforms.resize(nodes.size());
  out.visibility.resize(nodes.size());
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    INode* n = nodes[k];
    const SampleSpan span = sampleSpan(e, n->GetTimeRange(TIMERANGE_ALL));
    out.transforms[k].reserve(kReservedSamples);
    out.visibility[k].reserve(kReservedSamples);
    for (int i = 0; i < span.numSamples; ++i) {
      const TimeValue t = span.sampleTime(i);
      recordSample(out.transforms[k], widen(exportTransform(e, n, t)), i);
      recordSample(out.visibility[k], n->GetInheritVisibility() ? n->GetLocalVisibility(t) : n->GetVisibility(t), i);
    }
  }
  return out;
}

std::size_t reduceAll(const Recorded& r, bool entryByEntry = false) {
  std::size_t keys = 0;
  for (const auto& series : r.transforms)
    keys += (entryByEntry ? reduceKeysEntryByEntry(series, kTolerance, FrameInterpolation::None, false)
                          : reduceKeys(series, kTolerance, FrameInterpolation::None, false))
                .size();
  for (const auto& series : r.visibility)
    keys += (entryByEntry ? reduceKeysEntryByEntry(series, ScalarKeyTolerance{0.01f})
                          : reduceKeys(series, ScalarKeyTolerance{0.01f}))
                .size();
  return keys;
}

void perNodeFrame(benchmark::State& state) {
  state.counters["per_node_frame"] = benchmark::Counter(double(kNodes) * kSamples,
                                                        benchmark::Counter::kIsIterationInvariantRate |
                                                            benchmark::Counter::kInvert);
}

void BM_Sampling(benchmark::State& state) {
  const bool ramps = state.range(0) != 0;
  std::size_t entries = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Setup s = prepare(ramps);
    state.ResumeTiming();
    const Recorded r = sampleAll(*s.exporter);
    entries = 0;
    for (const auto& t : r.transforms) entries += t.size();
    state.PauseTiming();
    s = {};  // the scene's release is not part of the sampling
    state.ResumeTiming();
  }
  state.counters["transform_entries"] = double(entries);
  perNodeFrame(state);
}

void reduction(benchmark::State& state, bool entryByEntry) {
  Setup s = prepare(state.range(0) != 0);
  const Recorded r = sampleAll(*s.exporter);
  std::size_t keys = 0;
  for (auto _ : state) keys = reduceAll(r, entryByEntry);
  state.counters["keys"] = double(keys);
  perNodeFrame(state);
}
void BM_Reduction(benchmark::State& state) { reduction(state, false); }
// The same with the rule tried entry by entry: the reference of the summary.
void BM_ReductionEntryByEntry(benchmark::State& state) { reduction(state, true); }

// Times the animation pass alone over scenes `prepare` makes, one a pass;
// the file's size is kept as a counter.
template <typename Prepare>
void timeAnimationPasses(benchmark::State& state, Prepare prepare) {
  std::size_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Setup s = prepare();
    state.ResumeTiming();
    exportSceneAnimation(*s.exporter);
    bytes = s.exporter->sceneFile.getSize();
    state.PauseTiming();
    s = {};
    state.ResumeTiming();
  }
  state.counters["file_bytes"] = double(bytes);
}

void BM_AnimationPass(benchmark::State& state) {
  const bool ramps = state.range(0) != 0;
  timeAnimationPasses(state, [&] { return prepare(ramps); });
  perNodeFrame(state);
}

// The reference for the host model's transform cache: the typical pass with
// every parent's transform evaluated anew for each descendant.
void BM_AnimationPassUncached(benchmark::State& state) {
  hostmodel::MemoryNode::keepEvaluatedTransforms = false;
  BM_AnimationPass(state);
  hostmodel::MemoryNode::keepEvaluatedTransforms = true;
}

// One helper on a straight ramp over `frames` frames: two position keys.
std::string rampScene(int frames) {
  return R"({"frameRate": 30, "animationRange": [0, )" + std::to_string(frames) +
         R"(], "nodes": [{"name": "Ramp", "object": {"type": "helper"}, "transform": {"position": {"keys": [
         {"frame": 0, "value": [0, 0, 0]}, {"frame": )" + std::to_string(frames) +
         R"(, "value": [100, 50, -20]}]}}}]})";
}

Setup prepareRamp(int frames) { return prepareScene(rampScene(frames), frames, 4); }

void BM_RampNodePass(benchmark::State& state) {
  const int frames = static_cast<int>(state.range(0));
  timeAnimationPasses(state, [&] { return prepareRamp(frames); });
  state.counters["per_frame"] =
      benchmark::Counter(double(frames + 1), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_RampNodePass)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);

// Argument 0: the typical scene; 1: with the ramps.

BENCHMARK(BM_Sampling)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);
BENCHMARK(BM_Reduction)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);
BENCHMARK(BM_ReductionEntryByEntry)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);
BENCHMARK(BM_AnimationPass)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);
BENCHMARK(BM_AnimationPassUncached)->Arg(0)->Unit(benchmark::kMillisecond)->Apply(medianOfFive);

// --- keys of the rule against keys within the bound ---

// The flag of the tests as a scene file, written once by zt2export
// --write-scene into a directory of this run; its text and its folder (the
// buffers lie beside it).
struct FlagScene {
  std::unique_ptr<ztx_test::TempDir> dir;
  std::string json;
};
const FlagScene& flagScene() {
  static const FlagScene flag = [] {
    FlagScene f;
    f.dir = std::make_unique<ztx_test::TempDir>();
    ztx_test::writeFlag(f.dir->path().string());
    const auto r = ztx_test::runExport({f.dir->file("flag.md5mesh"), "--write-scene", f.dir->file("flag.scene.json"),
                                        "-o", f.dir->file("flag.zt2"), "--config-dir", f.dir->file("config"),
                                        "--quiet"});
    if (r.exitCode == 0)
      f.json = ztx_test::readText(f.dir->file("flag.scene.json"));
    else
      std::fprintf(stderr, "anim_bench: the flag could not be exported: %s\n", r.err.c_str());
    return f;
  }();
  return flag;
}

// The transform and visibility tracks of one of the cases, sampled as the pass samples them.
Recorded caseTracks(int which) {
  if (which == 0) {
    // A slow steady turn: 90 degrees over 1,000 frames.
    Recorded r;
    r.transforms.push_back(recordTrack([](int i) { return turn(i * (kPi / 2) / 1000.0); }, 1001));
    return r;
  }
  if (which == 1) {
    Setup s = prepare(false);
    return sampleAll(*s.exporter);
  }
  const FlagScene& flag = flagScene();
  if (flag.json.empty()) return {};
  auto host = hostmodel::loadSceneFromString(flag.json, flag.dir->path().string());
  SceneExporter e;
  e.host = host.get();
  e.ticksPerFrame = host->GetTicksPerFrame();
  const Interval range = host->GetAnimRange();
  e.options.startFrame = 0;
  e.options.endFrame = e.ticksPerFrame > 0 ? (range.End() - range.Start()) / e.ticksPerFrame : 0;
  // Sampled 120 times a second, as the driver applies a sample rate: the
  // rule's error grows with the rate, the bound's does not.
  host->SetFrameRate(120);
  return sampleAll(e);
}

struct KeyCount {
  std::size_t keys = 0;
  double error = 0;  // the largest over every track: translation, axis or visibility element
};

// The error is measured over the samples up to the last recorded entry,
// where every later sample repeats it.
KeyCount countKeys(const Recorded& r, bool bound) {
  KeyCount count;
  for (const auto& series : r.transforms) {
    const auto keys = bound ? reduceKeysWithinBound(series, kTolerance, FrameInterpolation::None, false)
                            : reduceKeys(series, kTolerance, FrameInterpolation::None, false);
    const int n = series.empty() ? 0 : series.indices.back() + 1;
    const MatrixKeyError e = largestKeyError(series, keys, n, FrameInterpolation::None, false);
    count.keys += keys.size();
    count.error = std::max({count.error, e.position, e.axes});
  }
  for (const auto& series : r.visibility) {
    const auto keys = bound ? reduceKeysWithinBound(series, ScalarKeyTolerance{0.01f})
                            : reduceKeys(series, ScalarKeyTolerance{0.01f});
    const int n = series.empty() ? 0 : series.indices.back() + 1;
    count.keys += keys.size();
    count.error = std::max(count.error, double(largestKeyError(series, keys, n)));
  }
  return count;
}

// Argument: 0 the slow turn, 1 this benchmark's scene, 2 the flag. Times the
// reduction within the bound with the measure of its error; the counters hold
// both key counts and errors (the tolerances: 0.001 per transform element,
// 0.01 visibility).
void BM_KeysRuleAgainstBound(benchmark::State& state) {
  const Recorded r = caseTracks(static_cast<int>(state.range(0)));
  if (r.transforms.empty()) {
    state.SkipWithError("no tracks");
    return;
  }
  KeyCount bound;
  for (auto _ : state) bound = countKeys(r, true);
  const KeyCount rule = countKeys(r, false);
  state.counters["rule_keys"] = double(rule.keys);
  state.counters["bound_keys"] = double(bound.keys);
  state.counters["rule_error"] = rule.error;
  state.counters["bound_error"] = bound.error;
}
BENCHMARK(BM_KeysRuleAgainstBound)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->Iterations(3);


// The bytes one pass writes, with or without the host's transform cache.
std::vector<std::uint8_t> passBytes(bool ramps, bool cached) {
  hostmodel::MemoryNode::keepEvaluatedTransforms = cached;
  Setup s = prepare(ramps);
  exportSceneAnimation(*s.exporter);
  hostmodel::MemoryNode::keepEvaluatedTransforms = true;
  const T_MemoryFile& f = s.exporter->sceneFile;
  return {f.data(), f.data() + f.size()};
}

// The heap a pass holds at its peak, above what the loaded scene holds.
std::size_t passPeakHeap(bool ramps) {
  Setup s = prepare(ramps);
  const std::size_t before = gHeapLive.load();
  gHeapPeak = before;
  exportSceneAnimation(*s.exporter);
  return gHeapPeak.load() - before;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--write-scene=", 14) != 0) continue;
    const bool ramps = i + 1 < argc && std::strcmp(argv[i + 1], "--ramps") == 0;
    std::FILE* f = std::fopen(argv[i] + 14, "wb");
    const std::string& text = scene(ramps);
    const bool written = f && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f && std::fclose(f) != 0) return 1;
    if (!written) {
      std::fprintf(stderr, "anim_bench: cannot write %s\n", argv[i] + 14);
      return 1;
    }
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  bench::MedianCollector reporter(bench::MedianCollector::Time::Cpu);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  const double nodeFrames = double(kNodes) * kSamples;
  std::printf("\nScene: %d nodes (%d chains %d deep, %d lights, %d free; the worst case has %d of them on a ramp), "
              "%d samples each\n",
              kNodes, kChains, kChainDepth, kLights, kFreeNodes, (kFreeNodes + 1) / 10, kSamples);
  std::printf("Median processor time:            typical       worst case\n");
  for (const char* name : {"BM_Sampling", "BM_Reduction", "BM_ReductionEntryByEntry", "BM_AnimationPass"}) {
    const auto typical = reporter.medianNs.find(std::string(name) + "/0");
    const auto worst = reporter.medianNs.find(std::string(name) + "/1");
    if (typical == reporter.medianNs.end() || worst == reporter.medianNs.end()) continue;
    std::printf("  %-22s %8.1f ns/node-frame %8.1f ns/node-frame  (%.0f ms, %.0f ms)\n", name + 3,
                typical->second / nodeFrames, worst->second / nodeFrames, typical->second / 1e6, worst->second / 1e6);
  }
  {
    const auto perSample = [&](const std::string& name, int n) {
      const auto it = reporter.medianNs.find(name + "/" + std::to_string(n));
      return it == reporter.medianNs.end() ? -1.0 : it->second / n;
    };
    const double ramp10k = perSample("BM_ReduceStraightMove", 10000);
    const double ramp100k = perSample("BM_ReduceStraightMove", 100000);
    const double plain10k = perSample("BM_ReduceStraightMoveEntryByEntry", 10000);
    if (ramp10k > 0 && ramp100k > 0)
      std::printf("Straight move, time per sample at 100,000 samples over that at 10,000: %.3f (goal <= 1.3)\n",
                  ramp100k / ramp10k);
    if (ramp10k > 0 && plain10k > 0)
      std::printf("Straight move of 10,000 samples, entry by entry / bounded search: %.0f\n", plain10k / ramp10k);
    const char* const modeNames[] = {"none", "normalised", "orthonormalised", "normalised, kept scaling"};
    for (int mode = 0; mode < 4; ++mode) {
      const std::string name = "BM_TurnGrowth/" + std::to_string(mode);
      const double t10 = perSample(name, 10000), t20 = perSample(name, 20000), t50 = perSample(name, 50000);
      if (t10 > 0 && t20 > 0 && t50 > 0)
        std::printf("Steady turn, %s: %.3f, %.3f, %.3f us per frame at 10,000, 20,000, 50,000 frames; per-frame "
                    "cost at 20,000 and 50,000 over 10,000: %.3f, %.3f (goal <= 1.3)\n",
                    modeNames[mode], t10 / 1e3, t20 / 1e3, t50 / 1e3, t20 / t10, t50 / t10);
    }
    const double pass10k = perSample("BM_RampNodePass", 10000), pass100k = perSample("BM_RampNodePass", 100000);
    if (pass10k > 0 && pass100k > 0)
      std::printf("One node on a ramp, whole animation pass, time per frame at 100,000 frames over that at 10,000: "
                  "%.3f (goal <= 1.3; %.0f ms, %.0f ms)\n",
                  pass100k / pass10k, pass10k * 10000 / 1e6, pass100k * 100000 / 1e6);
  }
  // The keys of the bounded search against the rule tried entry by entry, on
  // every track measured here: the bytes written follow from the keys alone.
  {
    bool same = true;
    std::size_t tracks = 0;
    const auto compare = [&](const KeySeries<SampleMatrix>& recorded, FrameInterpolation mode) {
      const auto a = reduceKeys(recorded, kTolerance, mode, false);
      const auto b = reduceKeysEntryByEntry(recorded, kTolerance, mode, false);
      same = same && a.indices == b.indices && a.values == b.values;
      ++tracks;
    };
    compare(recordTrack(straight, 10000), FrameInterpolation::None);
    compare(recordTrack(still, 1000), FrameInterpolation::None);
    compare(recordTrack(turning, 1000), FrameInterpolation::Normalized);
    compare(recordTrack(turning, 1000), FrameInterpolation::Orthonormalized);
    // The steady turn of the growth benchmark, one run of 5,000 entries: the
    // rule tried entry by entry takes a second or so for each mode.
    compare(recordTrack(slowTurning, 5000), FrameInterpolation::Normalized);
    compare(recordTrack(slowTurning, 5000), FrameInterpolation::Orthonormalized);
    {
      const auto turnTrack = recordTrack(slowTurning, 5000);
      const auto a = reduceKeys(turnTrack, kTolerance, FrameInterpolation::Normalized, true);
      const auto b = reduceKeysEntryByEntry(turnTrack, kTolerance, FrameInterpolation::Normalized, true);
      same = same && a.indices == b.indices && a.values == b.values;
      ++tracks;
    }
    compare(recordTrack(jittering, 1000), FrameInterpolation::None);
    for (const bool ramps : {false, true}) {
      Setup s = prepare(ramps);
      const Recorded r = sampleAll(*s.exporter);
      for (const auto& series : r.transforms) compare(series, FrameInterpolation::None);
      for (const auto& series : r.visibility) {
        const auto a = reduceKeys(series, ScalarKeyTolerance{0.01f});
        const auto b = reduceKeysEntryByEntry(series, ScalarKeyTolerance{0.01f});
        same = same && a.indices == b.indices && a.values == b.values;
        ++tracks;
      }
    }
    Setup ramp = prepareRamp(10000);
    std::vector<INode*> nodes;
    allNodes(ramp.host->GetRootNode(), nodes);
    KeySeries<SampleMatrix> rampSamples;
    const SampleSpan span = sampleSpan(*ramp.exporter, nodes.at(0)->GetTimeRange(TIMERANGE_ALL));
    for (int i = 0; i < span.numSamples; ++i)
      recordSample(rampSamples, widen(exportTransform(*ramp.exporter, nodes[0], span.sampleTime(i))), i);
    compare(rampSamples, FrameInterpolation::None);
    std::printf("Keys of the bounded search and of the rule tried entry by entry, %zu tracks: %s\n", tracks,
                same ? "identical" : "DIFFERENT");
  }
  const auto pass = reporter.medianNs.find("BM_AnimationPass/0");

  if (pass != reporter.medianNs.end()) std::printf("Typical whole pass: %.3f s (goal < 1 s)\n", pass->second / 1e9);
  const auto plain = reporter.medianNs.find("BM_AnimationPassUncached/0");
  if (pass != reporter.medianNs.end() && plain != reporter.medianNs.end())
    std::printf("Typical whole pass with the transform cache / without: %.3f (%.0f ms without)\n",
                pass->second / plain->second, plain->second / 1e6);
  for (const bool ramps : {false, true})
    std::printf("Bytes written by the %s pass with and without the transform cache: %s\n",
                ramps ? "worst case" : "typical",
                passBytes(ramps, true) == passBytes(ramps, false) ? "identical" : "DIFFERENT");
  std::printf("Peak heap of one pass above the loaded scene: typical %.1f MiB, worst case %.1f MiB\n",
              double(passPeakHeap(false)) / 1048576.0, double(passPeakHeap(true)) / 1048576.0);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("Peak memory of this process (ru_maxrss): %.1f MiB\n", double(usage.ru_maxrss) / 1024.0);
  return 0;
}
