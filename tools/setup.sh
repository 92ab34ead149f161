#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need,
# when they are missing. Run as root (or through sudo) on Debian 12.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev          # tests
  libbenchmark-dev                   # benchmarks
  nlohmann-json3-dev                 # scene files and JSON output
  libmeshoptimizer-dev assimp-utils  # reference figures of the mesh benchmark
  clang libclang-rt-14-dev           # the fuzzers (libFuzzer and the sanitizers' runtimes)
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: need root to install ${missing[*]}" >&2; exit 1; }
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
