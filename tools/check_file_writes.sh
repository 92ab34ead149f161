#!/usr/bin/env bash
# Every file the program creates, replaces or removes goes through
# format/output_files.cpp, where the rules of safe writing live once. This
# lists every call elsewhere in the sources (C++ and Python, tests, benchmarks
# and fuzzers apart, which make their own fixtures) that creates, replaces or
# removes a file or folder, and fails when there is any.
set -euo pipefail
cd "$(dirname "$0")/.."

module='format/output_files.cpp'
cpp_calls='(^|[^A-Za-z0-9_.>])(rename|renameat|renameat2|unlink|unlinkat|rmdir|mkdir|mkdirat|mkstemp|mkostemp|mkstemps|mkdtemp|link|linkat|symlink|symlinkat|creat|truncate|tmpfile|mkfifo|mknod)[[:space:]]*\(|O_CREAT|O_TRUNC|ofstream|fopen[[:space:]]*\([^)]*"[wa+]|(filesystem|fs)::(remove|remove_all|rename|create_directory|create_directories|copy|copy_file|copy_symlink|create_symlink|create_directory_symlink|create_hard_link|resize_file|permissions)[[:space:]]*\('
py_calls='os\.(remove|unlink|rmdir|removedirs|rename|renames|replace|mkdir|makedirs|symlink|link|truncate|mkfifo|mknod)[[:space:]]*\(|O_CREAT|shutil\.|tempfile\.|(^|[^A-Za-z0-9_.])open[[:space:]]*\([^)]*,[[:space:]]*["'"'"'][^"'"'"']*[wax+]|\.(write_text|write_bytes|mkdir|unlink|rmdir|rename|replace|touch|symlink_to|hardlink_to)[[:space:]]*\('

found=0
while IFS= read -r -d '' f; do
  [ "$f" = "$module" ] && continue
  case "$f" in
    *.cpp|*.h|*.cc|*.hpp) pattern="$cpp_calls" ;;
    *.py) pattern="$py_calls" ;;
    *) continue ;;
  esac
  # Comments are not calls.
  if hits=$(grep -nE "$pattern" "$f" | grep -vE '^[0-9]+:[[:space:]]*(//|#|\*)'); then
    while IFS= read -r line; do echo "$f:$line"; done <<<"$hits"
    found=1
  fi
done < <(git ls-files -z -- '*.cpp' '*.h' '*.cc' '*.hpp' '*.py' ':!:tests/**' ':!:bench/**' ':!:fuzz/**')

if [ "$found" -ne 0 ]; then
  echo "check_file_writes: the calls above create, replace or remove files outside $module; go through it" >&2
  exit 1
fi
echo "check_file_writes: every file is created, replaced and removed through $module"
