#!/usr/bin/env bash
# What a user and a packager meet besides the exports: every tool's --version
# prints the one version CMake sets, the Python package and the batch manifest
# carry it, each manual page renders, and the bash completion completes.
# Usage: release_test.sh VERSION SOURCE_DIR ZT2EXPORT ZT2DUMP ZT2VIEW COMPLETION PYTHON PYTHONPATH MAN_PAGE...
# (an empty ZT2VIEW or PYTHON: that part was not built). Prints "release: N passed, M failed".
set -uo pipefail
version="$1" source_dir="$2" zt2export="$3" zt2dump="$4" zt2view="$5" completion="$(realpath "$6")" python="$7" pythonpath="$8"
shift 8
man_pages=("$@")

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
passed=0
failed=0
expect() {  # expect NAME ACTUAL WANTED
  if [ "$2" == "$3" ]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    printf 'release: FAIL %s\n  got:    %s\n  wanted: %s\n' "$1" "$2" "$3"
  fi
}

# Every tool's --version, against the version CMake was given.
module_part="$("$zt2export" --version | sed -n 's/^zt2export [^ ]* \((exporter module: .*)\)$/\1/p')"
versions=("zt2export|$zt2export|zt2export $version $module_part" "zt2dump|$zt2dump|zt2dump $version")
[ -n "$zt2view" ] && versions+=("zt2view|$zt2view|zt2view $version")
for row in "${versions[@]}"; do
  IFS='|' read -r name program wanted <<<"$row"
  expect "$name --version" "$("$program" --version 2>&1)" "$wanted"
done
expect "zt2export --version names the module" "${module_part:0:18}" "(exporter module: "
if [ -n "$python" ]; then
  expect "ztexport.__version__" "$(PYTHONPATH="$pythonpath" "$python" -c 'import ztexport; print(ztexport.__version__)' 2>&1)" "$version"
fi
mkdir -p "$work/src"
cp "$source_dir/examples/example.scene.json" "$work/src/"
cp -r "$source_dir/examples/textures" "$work/src/"
"$zt2export" --batch "$work/src" -o "$work/batch" -j 1 --config-dir "$work/config" >/dev/null 2>&1
expect "the batch manifest's ztexportVersion" \
  "$(sed -n 's/^  "ztexportVersion": "\(.*\)",$/\1/p' "$work/batch/ztexport-manifest.json" 2>&1)" "$version"

# Each manual page renders without a warning, with its sections and the version.
[ ${#man_pages[@]} -gt 0 ] || expect "manual pages built" "none (help2man missing: run tools/setup.sh)" "three"
for page in "${man_pages[@]}"; do
  name="$(basename "$page" .1)"
  text="$(MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings -l "$page" 2>"$work/man.err")"
  expect "man -l $name.1 warnings" "$(cat "$work/man.err")" ""
  sections="$(printf '%s\n' "$text" | grep -E '^(NAME|SYNOPSIS|DESCRIPTION|FILES|EXAMPLES|SEE ALSO)$' | tr '\n' ' ')"
  expect "man -l $name.1 sections" "$sections" "NAME SYNOPSIS DESCRIPTION FILES EXAMPLES SEE ALSO "
  expect "man -l $name.1 names the version" "$(printf '%s\n' "$text" | tail -n 1 | grep -o "ZTExport $version")" \
    "ZTExport $version"
done

# The completion, driven as bash drives it: COMP_WORDS and COMP_CWORD set,
# the function called, COMPREPLY read. Files are completed in a folder made here.
mkdir -p "$work/files/maps"
touch "$work/files/"{a.zt2,b.SKD,c.txt,crate.3ds,scene.json}
complete_words() {  # complete_words FUNCTION WORD...: the last word is the one completed
  (cd "$work/files" && bash -c 'source "$1"; shift; f="$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1));
    "$f"; printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort | tr "\n" " "' - "$completion" "$@" 2>&1)
}
# The words typed, the last being the one completed ("_": an empty word), and what it completes to.
while IFS='|' read -r words wanted; do
  read -ra argv <<<"$words"
  [ "${argv[-1]}" = _ ] && argv[-1]=""
  expect "completion of '$words'" "$(complete_words "_${argv[0]}" "${argv[@]}")" "$wanted"
done <<'CASES'
zt2export --set sampl|sampleRate= 
zt2export --set exportSk|exportSkinning= 
zt2export --texture-n|--texture-names 
zt2export --batch src --ti|--timeout 
zt2export _|crate.3ds maps scene.json 
zt2export scene.json -o _|a.zt2 maps 
zt2export scene.json --missing-textures _|drop error 
zt2dump _|a.zt2 b.SKD maps 
zt2dump --val|--validate 
zt2view a.zt2 -|--help --version -o 
CASES

echo "release: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
