#!/usr/bin/env bash
# Takes the pictures of the exporter's windows in docs/ on a virtual display, and the
# preview page of the example, also dropped on another page.
# Run from the source tree after building: tools/screenshots.sh [BUILD_DIR]
set -euo pipefail
build="${1:-build}"
cmake --build "$build" --target window_shots
xvfb-run -a -s "-screen 0 1280x1024x24" "$build/window_shots" docs

# The preview page of the example, and of a skinned, animated character of the model corpus half a
# second into its walk, in headless chromium (no display needed).
cmake --build "$build" --target zt2export zt2view
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
"$build/zt2export" examples/example.scene.json -o "$out/example.zt2" --config-dir "$out/config" --quiet
"$build/zt2view" "$out/example.zt2" -o "$out/example.html"
node tools/zt2view/web/page_check.mjs "$out/example.html" --screenshot docs/zt2view-example.png
node tools/zt2view/web/page_check.mjs "$out/example.html" --viewport 800x600 --camera Camera01 --at 0.5 \
  --screenshot docs/zt2view-narrow.png
# The crate's page with the example dropped on it, converted in the page, all but the cloth's image: the
# converter's warning shows over the view.
"$build/zt2export" examples/crate.3ds -o "$out/crate.zt2" --config-dir "$out/config" --quiet
"$build/zt2view" "$out/crate.zt2" -o "$out/crate.html"
node tools/zt2view/web/page_check.mjs "$out/crate.html" --drop "$out/example.zt2,$out/example.skd,$out/skin.png" --at 0.5 \
  --screenshot docs/zt2view-dropped.png
"$build/zt2export" /usr/share/assimp/models/X/Testwuson.X -o "$out/Testwuson.zt2" --config-dir "$out/config" --quiet
"$build/zt2view" "$out/Testwuson.zt2" -o "$out/Testwuson.html"
node tools/zt2view/web/page_check.mjs "$out/Testwuson.html" --screenshot docs/zt2view-skinned.png --at 0.5
