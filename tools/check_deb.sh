#!/usr/bin/env bash
# Installs the Debian package (`cpack -G DEB` in the build folder), uses what it
# installed as a user would, from outside the source tree, then removes it.
# Usage: tools/check_deb.sh [PACKAGE.deb]   (default: build/ztexport_*_amd64.deb)
# Installing needs root (or sudo). Ends with "deb: N passed, M failed"; exit status 1 on
# any failure.
set -uo pipefail
repo="$(cd "$(dirname "$0")/.." && pwd)"

deb="${1:-}"
if [ -z "$deb" ]; then
  debs=("$repo"/build/ztexport_*_amd64.deb)
  if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then
    echo "check_deb: expected one build/ztexport_*_amd64.deb; run cpack -G DEB in build/" >&2
    exit 2
  fi
  deb="${debs[0]}"
fi
deb="$(cd "$(dirname "$deb")" && pwd)/$(basename "$deb")"

passed=0
failed=0
check() {  # check NAME COMMAND...: runs the command, counts and prints the outcome
  local name="$1"
  shift
  if "$@" >"$work/out.log" 2>&1; then
    passed=$((passed + 1))
    echo "deb: PASS $name"
  else
    failed=$((failed + 1))
    echo "deb: FAIL $name"
    sed 's/^/    /' "$work/out.log" | tail -n 20
  fi
}

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
# Everything below runs from a folder outside the source tree and without
# PYTHONPATH, so that only what the package installed can be found.
cd "$work" || exit 2
unset PYTHONPATH
export DEBIAN_FRONTEND=noninteractive
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "check_deb: need root (or sudo) to install the package" >&2; exit 2; }
  as_root=(sudo)
fi

check "apt-get install $(basename "$deb")" "${as_root[@]}" apt-get install -y -q "$deb"

mkdir -p config out
check "installed zt2export exports the example" \
  /usr/bin/zt2export "$repo/examples/example.scene.json" -o "$work/out/example.zt2" --config-dir "$work/config" --quiet
dump_and_validate() { /usr/bin/zt2dump "$1" >/dev/null && /usr/bin/zt2dump --validate "$1"; }
check "installed zt2dump reads and validates the export" dump_and_validate "$work/out/example.zt2"
# A model in a format the import library reads: its reader loads the models
# module from /usr/lib/ztexport.
printf 'v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n' >"$work/triangle.obj"
model_loads_installed_module() {
  LD_DEBUG=files /usr/bin/zt2export "$work/triangle.obj" -o "$work/out/triangle.zt2" --config-dir "$work/config" \
    --quiet 2>"$work/ld-models.log" || { tail -n 5 "$work/ld-models.log"; return 1; }
  grep -q 'file=/usr/lib/ztexport/ZTExportModels.so ' "$work/ld-models.log" ||
    { echo "ZTExportModels.so not loaded from /usr/lib/ztexport"; return 1; }
  dump_and_validate "$work/out/triangle.zt2"
}
check "an OBJ model exports through /usr/lib/ztexport/ZTExportModels.so" model_loads_installed_module

# What a user meets besides the programs: the manual pages through man, the
# bash completion as bash-completion loads it, the licences.
man_renders() {
  local text
  text="$(MANWIDTH=80 man zt2export 2>&1)" || { echo "$text"; return 1; }
  grep -q -- '--set FIELD=VALUE' <<<"$text" || { echo "man zt2export shows no --set:"; head -n 20 <<<"$text"; return 1; }
  man -w zt2dump zt2view
}
check "man zt2export, zt2dump, zt2view" man_renders
completes_installed() {
  local got
  got="$(bash -c 'source /usr/share/bash-completion/completions/zt2export; COMP_WORDS=(zt2export --set sampl);
    COMP_CWORD=2; _zt2export; echo "${COMPREPLY[*]}"')" || return 1
  [ "$got" = "sampleRate=" ] || { echo "zt2export --set sampl completes to '$got'"; return 1; }
  for tool in zt2dump zt2view; do
    [ -f "/usr/share/bash-completion/completions/$tool" ] || { echo "no completion for $tool"; return 1; }
  done
}
check "the installed completion completes zt2export --set sampl" completes_installed
licences_installed() {
  grep -q '^Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/' /usr/share/doc/ztexport/copyright &&
    grep -q '^Files: tools/zt2view/web/node_modules/three/\*' /usr/share/doc/ztexport/copyright &&
    [ -f /usr/share/doc/ztexport/CHANGELOG.md ]
}
check "/usr/share/doc/ztexport/copyright and CHANGELOG.md" licences_installed
check "installed tools print the package's version" bash -c '
  version="$(dpkg-query -W -f="\${Version}" ztexport)" &&
  [ "$(/usr/bin/zt2dump --version)" = "zt2dump $version" ] && [ "$(/usr/bin/zt2view --version)" = "zt2view $version" ] &&
  /usr/bin/zt2export --version | grep -qx "zt2export $version (exporter module: .*)"'

# The reader library as another project finds it under /usr, with no path given.
consumer_prints() {  # consumer_prints PROGRAM: what the consumer must print for the example
  local out
  out="$("$1" "$work/out/example.zt2")" || return 1
  [ "$out" = "8 nodes, 2 meshes, 24 vertices" ] || { echo "printed: $out"; return 1; }
}
consumer_by_find_package() {
  cmake -S "$repo/tests/install/consumer" -B "$work/consumer" && cmake --build "$work/consumer" &&
    consumer_prints "$work/consumer/consumer"
}
consumer_by_pkg_config() {
  local flags
  flags="$(pkg-config --cflags --libs ztexport)" || return 1
  # shellcheck disable=SC2086  # the flags are words
  c++ -std=c++17 "$repo/tests/install/consumer/main.cpp" $flags -o "$work/consumer_pc" &&
    consumer_prints "$work/consumer_pc"
}
check "a consumer links the reader through find_package(ZTExport)" consumer_by_find_package
check "a consumer links the reader through pkg-config" consumer_by_pkg_config

# A DDS texture goes to the OpenImageIO module, which the installed tools
# must find in /usr/lib/ztexport (no copy lies beside them in /usr/bin).
if [ -f /usr/lib/ztexport/ZTExportImages.so ]; then
  dds_loads_installed_module() {
    cp -r "$repo/examples" "$work/dds"
    /usr/bin/python3 - "$work/dds" <<'EOF' || return 1
import struct, sys
folder = sys.argv[1]
# Uncompressed 2x2 BGRA: a format stb_image does not read.
header = struct.pack("<4sIIIIIII44x", b"DDS ", 124, 0x100F, 2, 2, 8, 0, 1)
header += struct.pack("<8I", 32, 0x41, 0, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000)
header += struct.pack("<I16x", 0x1000)
with open(folder + "/textures/skin.dds", "wb") as f:
    f.write(header + bytes([90, 90, 90, 255] * 4))
with open(folder + "/example.scene.json") as f:
    scene = f.read().replace("textures/skin.png", "textures/skin.dds")
with open(folder + "/example.scene.json", "w") as f:
    f.write(scene)
EOF
    /usr/bin/zt2export "$work/dds/example.scene.json" -o "$work/dds/out.zt2" --config-dir "$work/config" --quiet || return 1
    LD_DEBUG=files /usr/bin/zt2dump --gltf "$work/dds/out.glb" "$work/dds/out.zt2" 2>"$work/ld.log" || return 1
    grep -q 'file=/usr/lib/ztexport/ZTExportImages.so ' "$work/ld.log" || { echo "ZTExportImages.so not loaded from /usr/lib/ztexport"; return 1; }
  }
  check "a DDS texture loads /usr/lib/ztexport/ZTExportImages.so" dds_loads_installed_module
else
  echo "deb: the package holds no ZTExportImages.so (built without OpenImageIO): image module check skipped"
fi

# The windows library needs a display to show anything; that it loads with
# the libraries the package depends on is what can be checked here.
if [ -f /usr/lib/ztexport/ZTExportUI.so ]; then
  check "/usr/lib/ztexport/ZTExportUI.so loads" \
    /usr/bin/python3 -c 'import ctypes; ctypes.CDLL("/usr/lib/ztexport/ZTExportUI.so")'
fi

if dpkg -L ztexport 2>/dev/null | grep -qx /usr/lib/python3/dist-packages/ztexport; then
  check "python3 -c 'import ztexport' without PYTHONPATH" \
    /usr/bin/python3 -c 'import ztexport, sys; sys.exit(0 if ztexport.__file__.startswith("/usr/lib/python3/dist-packages/ztexport/") else "imported from " + ztexport.__file__)'
  check "the installed Python package exports an OBJ model" \
    /usr/bin/python3 -c 'import os, sys, ztexport; ztexport.export(sys.argv[1], sys.argv[2], config_dir=sys.argv[3]); os.stat(sys.argv[2])' \
    "$work/triangle.obj" "$work/out/triangle-py.zt2" "$work/config"
else
  echo "deb: the package holds no /usr/lib/python3/dist-packages/ztexport: python import check skipped"
fi

# The Blender add-on as a user installs it: copied from the package into a
# Blender profile of its own, enabled there, and exporting through the
# installed Python package and module.
addon=/usr/share/ztexport/blender/io_scene_zt2
if ! command -v blender >/dev/null; then
  echo "deb: blender is not installed: Blender add-on check skipped"
elif [ ! -f "$addon/__init__.py" ]; then
  failed=$((failed + 1))
  echo "deb: FAIL the package holds no Blender add-on in $addon"
else
  blender_exports_installed() {
    mkdir -p "$work/blender/scripts/addons" "$work/blender/config"
    cp -r "$addon" "$work/blender/scripts/addons/" || return 1
    BLENDER_USER_SCRIPTS="$work/blender/scripts" XDG_CONFIG_HOME="$work/blender/config" \
      blender -b --factory-startup -noaudio --python-exit-code 1 --python-expr '
import sys, addon_utils, bpy
out, scripts = sys.argv[-2], sys.argv[-1]
module = addon_utils.enable("io_scene_zt2", default_set=True, handle_error=lambda error: sys.exit("enable: %s" % error))
if module is None or not module.__file__.startswith(scripts):
    sys.exit("the add-on was not enabled from %s: %r" % (scripts, module))
import ztexport
if not ztexport.__file__.startswith("/usr/lib/python3/dist-packages/"):
    sys.exit("ztexport imported from " + ztexport.__file__)
bpy.ops.mesh.primitive_cube_add()
if bpy.ops.export_scene.zt2(filepath=out) != {"FINISHED"}:
    sys.exit("the export was cancelled")
' -- "$work/out/blender.zt2" "$work/blender/scripts" || return 1
    /usr/bin/zt2dump --validate "$work/out/blender.zt2"
  }
  check "Blender exports through the add-on installed from $addon" blender_exports_installed
fi

check "apt-get remove ztexport" "${as_root[@]}" apt-get remove -y -q ztexport
check "nothing of the package is left" \
  bash -c '! [ -e /usr/bin/zt2export ] && ! [ -e /usr/bin/zt2dump ] && ! [ -e /usr/lib/ztexport ] && ! [ -e /usr/share/ztexport ] && ! [ -e /usr/share/man/man1/zt2export.1.gz ] && ! [ -e /usr/share/bash-completion/completions/zt2export ] && ! dpkg -s ztexport 2>/dev/null | grep -q "^Status: install ok"'

# Removing keeps dpkg's record of the package (its maintainer scripts); purge it too.
"${as_root[@]}" dpkg --purge ztexport >/dev/null 2>&1 || true

echo "deb: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
