#!/usr/bin/env bash
# Compiles every complete program shown in the documentation (each ```cpp
# block holding a main function) against the headers and, when a library
# directory is given, links and runs it: it must exit with status 0.
# Programs that take arguments are only compiled.
#
# Usage: docs_examples.sh DOCS_DIR INCLUDE_DIR CXX [LIBRARY_DIR]
# The compiler flags, if any, come in OVRA_DOCS_CXXFLAGS.
set -uo pipefail
docs=$1
include=$2
cxx=$3
read -r -a flags <<<"${OVRA_DOCS_CXXFLAGS:-}"
libdir=${4:-}
[ -n "$libdir" ] && libdir=$(cd "$libdir" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
programs=0

for page in "$docs"/*.md; do
  # Split the page's cpp blocks into numbered files.
  awk -v out="$work/$(basename "$page" .md)" '
    /^```cpp$/ { inside = 1; n++; file = out "_" n ".cpp"; next }
    /^```$/    { inside = 0; next }
    inside     { print > file }' "$page"
done
for src in "$work"/*.cpp; do
  [ -e "$src" ] || continue
  grep -q 'int main(' "$src" || continue
  programs=$((programs + 1))
  name=$(basename "$src" .cpp)
  if [ -z "$libdir" ]; then
    if ! "$cxx" -std=c++17 -Wall -Wextra -Werror "${flags[@]}" -fsyntax-only -I"$include" "$src" \
         2> "$work/$name.log"; then
      echo "FAIL: $name does not compile:"; cat "$work/$name.log"; failures=$((failures + 1))
    fi
    continue
  fi
  if ! "$cxx" -std=c++17 -Wall -Wextra -Werror "${flags[@]}" -I"$include" "$src" -o "$work/$name" \
       -L"$libdir" -lovra -Wl,-rpath,"$libdir" 2> "$work/$name.log"; then
    echo "FAIL: $name does not build:"; cat "$work/$name.log"; failures=$((failures + 1))
    continue
  fi
  grep -q 'argc' "$src" && continue
  if ! (cd "$work" && "./$name" > "$name.out" 2>&1); then
    echo "FAIL: $name exits with a failure:"; cat "$work/$name.out"; failures=$((failures + 1))
  fi
done
echo "$programs documented programs checked, $failures failed"
[ "$programs" -gt 0 ] && [ "$failures" -eq 0 ]
