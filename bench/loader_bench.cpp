// The scene loader against input shapes chosen to defeat it: a long list of
// nodes, a chain at the nesting bound, and both at once. Time per node should
// stay flat as the list grows (the reported complexity is O(N)).
#include <benchmark/benchmark.h>

#include <string>

#include "host/memory/memory_host.h"

namespace {

// `depth` nested nodes, the innermost holding `leaves` children.
std::string sceneText(int depth, int leaves) {
  std::string json = R"({"nodes": [)";
  for (int i = 0; i < depth; ++i) json += R"({"name": "n)" + std::to_string(i) + R"(", "children": [)";
  for (int j = 0; j < leaves; ++j) json += (j ? "," : "") + std::string(R"({"name": "leaf)") + std::to_string(j) + "\"}";
  for (int i = 0; i < depth; ++i) json += "]}";
  return json + "]}";
}

void load(benchmark::State& state, const std::string& text, int nodes) {
  for (auto _ : state) benchmark::DoNotOptimize(hostmodel::loadSceneFromString(text, "", "bench.json"));
  state.SetItemsProcessed(state.iterations() * nodes);
  state.SetComplexityN(nodes);
}

void BM_LoadNodeList(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  load(state, sceneText(0, n), n);
}
BENCHMARK(BM_LoadNodeList)->RangeMultiplier(4)->Range(10000, 160000)->Unit(benchmark::kMillisecond)->Complexity();

void BM_LoadDeepChainWithList(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  load(state, sceneText(999, n), 999 + n);
}
BENCHMARK(BM_LoadDeepChainWithList)->Arg(0)->Arg(40000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
