#!/usr/bin/env bash
# Runs every libFuzzer harness of fuzz/ for SECONDS each, as many at once as
# there are cores (ZTX_FUZZ_JOBS to choose), from the seed corpus in
# tests/fuzz_corpus/. Builds them first (clang, both
# sanitizers) in BUILD_DIR, default build-fuzz.
#
#   bench/run_fuzzers.sh SECONDS [BUILD_DIR] [HARNESS ...]
#
# What a run finds (crash-*, leak-*, timeout-*) lands in BUILD_DIR/findings/
# and the script exits non-zero; the corpus grown by earlier runs is kept in
# BUILD_DIR/corpus/ and used again.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?usage: bench/run_fuzzers.sh SECONDS [BUILD_DIR] [HARNESS ...]}
build=${2:-build-fuzz}
shift $(( $# >= 2 ? 2 : 1 ))
harnesses=("$@")
[ ${#harnesses[@]} -gt 0 ] || harnesses=(scene options script dump obj gltf)

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZTX_FUZZ=ON -DZTX_BUILD_TESTS=OFF -DZTX_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$build" --target "${harnesses[@]/%/_fuzz}" -- -j2 >/dev/null

mkdir -p "$build/findings"
# One harness per core at a time: each fuzzer is a single process, so the run
# takes SECONDS per pair instead of per harness.
jobs=${ZTX_FUZZ_JOBS:-$(nproc 2>/dev/null || echo 1)}

run_one() {
  local h=$1 corpus="$build/corpus/$1" start max_len scratch result runs
  mkdir -p "$corpus"
  start=$(date +%s)
  # A scene file is text a person writes; 64 KiB is room for every construct.
  max_len=$([ "$h" = scene ] && echo 65536 || echo 16384)
  scratch=$(mktemp -d "$( [ -d /dev/shm ] && echo /dev/shm || echo "${TMPDIR:-/tmp}")/ztx-fuzz-XXXXXX")
  if ZTX_FUZZ_SCRATCH="$scratch" "$build/fuzz/${h}_fuzz" "$corpus" "tests/fuzz_corpus/$h" -max_total_time="$seconds" -max_len="$max_len" \
      -timeout=10 -rss_limit_mb=2048 -artifact_prefix="$build/findings/$h-" -print_final_stats=1 \
      >"$build/findings/$h.log" 2>&1; then
    result=clean
  else
    result="FINDING (see $build/findings/$h.log)"
  fi
  rm -rf "$scratch"
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/findings/$h.log" | grep -o '[0-9]*$' || echo "?")
  echo "$h: $(( $(date +%s) - start )) s, $runs inputs, $result"
  [ "$result" = clean ]
}

status=0
pids=()
for h in "${harnesses[@]}"; do
  run_one "$h" &
  pids+=($!)
  if [ ${#pids[@]} -ge "$jobs" ]; then
    wait "${pids[0]}" || status=1
    pids=("${pids[@]:1}")
  fi
done
for pid in "${pids[@]}"; do wait "$pid" || status=1; done
exit $status
