#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need,
# when they are missing. Run as root (or through sudo) on Debian 12.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev          # tests
  libbenchmark-dev                   # benchmarks
  nlohmann-json3-dev                 # scene files and JSON output
  libcli11-dev                       # command lines of the tools
  libmeshoptimizer-dev assimp-utils  # reference figures of the mesh benchmark; the skinning comparison
  libstb-dev                         # image decoding of the host model
  libopenimageio-dev                 # the image formats stb does not read (DDS, TIFF, EXR, SGI, ...)
  qt6-base-dev fonts-dejavu-core     # the exporter's windows and their tests
  xvfb xauth                         # pictures of the windows (tools/screenshots.sh)
  lib3ds-dev libassimp-dev           # model front ends of zt2export
  assimp-testmodels                  # the model corpus of the tests
  libtinygltf-dev                    # zt2dump --gltf
  libssl-dev                         # content hashes of zt2export --batch's stamps
  pybind11-dev python3-dev python3-numpy  # the Python package ztexport (docs/python.md)
  python3-distributed                # ztexport.batch on a Dask cluster (docs/batch.md)
  blender                            # the Blender add-on's tests (docs/blender.md)
  nodejs chromium                    # zt2view's page, the glTF validator and the browser tests
  clang libclang-rt-14-dev           # the fuzzers (libFuzzer and the sanitizers' runtimes)
  dpkg-dev file                      # cpack -G DEB: dpkg-shlibdeps finds the package's dependencies
)

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
