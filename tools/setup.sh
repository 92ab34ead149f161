#!/usr/bin/env bash
# Installs the Debian packages that are missing, on Debian 12; run as root (or
# with sudo at hand).
#   tools/setup.sh          what the build and the example need: the tools, the
#                           exporter module with its windows, zt2view's page
#   tools/setup.sh --tests  that, and what only the tests, the benchmarks, the
#                           fuzzers and the package check need
set -euo pipefail

tests=0
case "${1:-}" in
  "") ;;
  --tests) tests=1 ;;
  *) echo "setup: unknown argument '$1' (tools/setup.sh [--tests])" >&2; exit 2 ;;
esac

packages=(
  g++ cmake ninja-build pkg-config
  nlohmann-json3-dev                 # scene files and JSON output
  libcli11-dev                       # command lines of the tools
  libstb-dev                         # image decoding of the host model
  libopenimageio-dev                 # the image formats stb does not read (DDS, TIFF, EXR, SGI, ...)
  qt6-base-dev                       # the exporter's windows
  lib3ds-dev libassimp-dev           # model front ends of zt2export
  libtinygltf-dev                    # zt2dump --gltf and zt2view
  libssl-dev                         # content hashes of zt2export --batch's stamps
  nodejs                             # bundles zt2view's page script at build time
  clang-14 lld-14 wasi-libc libc++-14-dev-wasm32 libc++abi-14-dev-wasm32 libclang-rt-14-dev-wasm32  # the page's converter (WebAssembly)
  help2man                           # the tools' manual pages
)
test_packages=(
  libgtest-dev libgmock-dev          # tests
  libbenchmark-dev                   # benchmarks
  libmeshoptimizer-dev assimp-utils  # reference figures of the mesh benchmark; the skinning comparison
  gltfpack                           # a peer of bench/peer_bench.py
  fonts-dejavu-core                  # the windows' tests draw text
  xvfb xauth                         # pictures of the windows (tools/screenshots.sh)
  assimp-testmodels                  # the model corpus of the tests
  pybind11-dev python3-dev python3-numpy  # the Python package ztexport (docs/python.md)
  python3-venv python3-wheel python3-setuptools  # the Python package's wheel
  python3-distributed                # ztexport.batch on a Dask cluster (docs/batch.md)
  blender                            # the Blender add-on's tests (docs/blender.md)
  chromium                           # the page's browser tests
  clang libclang-rt-14-dev           # the fuzzers (libFuzzer and the sanitizers' runtimes)
  dpkg-dev file                      # cpack -G DEB: dpkg-shlibdeps finds the package's dependencies
  man-db                             # the package check reads the installed manual page
)
[ "$tests" -eq 1 ] && packages+=("${test_packages[@]}")

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# Some node builds carry their own npm, which Debian's npm package conflicts with.
command -v npm >/dev/null || missing+=(npm)

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "setup: need root to install ${missing[*]}" >&2; exit 1; }
    sudo_cmd=(sudo)
  fi
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The page's npm packages, at the versions of the lock file, when they changed.
web="$(dirname "$0")/zt2view/web"
if [ ! -f "$web/node_modules/.package-lock.json" ] || ! cmp -s "$web/package-lock.json" "$web/node_modules/.package-lock.json.installed"; then
  (cd "$web" && npm ci --no-audit --no-fund --loglevel=error && cp package-lock.json node_modules/.package-lock.json.installed)
fi
