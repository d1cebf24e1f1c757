#!/usr/bin/env bash
# Runs every fuzz target of a build directory for a bounded time each, on a
# scratch copy of its committed seed corpus, and prints the executions each
# ran. Exits non-zero when any target reports a finding (crash, sanitizer
# error, leak, timeout, out-of-memory) or a configured target was not built.
#   fuzz/run.sh <build-dir> [seconds-per-target]
# Environment:
#   FUZZ_SECONDS  seconds per target when none is given (default 30); the
#                 long mode is just a larger figure, e.g. FUZZ_SECONDS=600
#   FUZZ_TARGETS  run only these targets (names separated by blanks)
#   FUZZ_KEEP     a directory that receives each target's grown corpus, so
#                 that a long run can be minimised into the committed seeds
set -uo pipefail
if [ $# -lt 1 ]; then
  echo "usage: $0 <build-dir> [seconds]" >&2
  exit 2
fi
BUILD=$(cd "$1" && pwd)
SECONDS_EACH=${2:-${FUZZ_SECONDS:-30}}
ONLY=${FUZZ_TARGETS:-}
KEEP=${FUZZ_KEEP:-}
HERE=$(cd "$(dirname "$0")" && pwd)
WORK=$(mktemp -d "${TMPDIR:-/tmp}/ovra-fuzz.XXXXXX")
trap 'rm -rf "$WORK"' EXIT

export ASAN_OPTIONS=allocator_may_return_null=1:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

for name in $ONLY; do
  if [ ! -f "$HERE/$name.cpp" ]; then
    echo "FUZZ_TARGETS names $name, which is no target of $HERE" >&2
    exit 2
  fi
done

failed=()
echo "$SECONDS_EACH s per target"
printf '%-22s %12s %8s %7s %7s  %s\n' target executions exec/s corpus cov result
LIST="$BUILD/fuzz/fuzz_targets.txt"
if [ ! -s "$LIST" ]; then
  echo "$LIST missing: configure $BUILD with -DOVRA_BUILD_FUZZ=ON" >&2
  exit 2
fi
for src in "$HERE"/*_fuzz.cpp; do
  name=$(basename "$src" .cpp)
  if [ -n "$ONLY" ] && ! printf '%s\n' $ONLY | grep -qx "$name"; then
    continue
  fi
  if ! grep -qx "$name" "$LIST"; then
    printf '%-22s %12s  %s\n' "$name" - "left out by the build configuration"
    continue
  fi
  exe="$BUILD/fuzz/$name"
  if [ ! -x "$exe" ]; then
    echo "$name: not built in $BUILD" >&2
    failed+=("$name(missing)")
    continue
  fi
  corpus="$WORK/$name/corpus"
  artifacts="$WORK/$name/artifacts"
  mkdir -p "$corpus" "$artifacts"
  if [ -d "$HERE/corpus/$name" ]; then cp -R "$HERE/corpus/$name/." "$corpus/"; fi
  log="$WORK/$name/log"
  "$exe" -max_total_time="$SECONDS_EACH" -rss_limit_mb=2048 -timeout=25 \
    -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" >"$log" 2>&1
  rc=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
  entries=$(find "$corpus" -type f | wc -l)
  cov=$(grep -E '^#[0-9]+' "$log" | tail -n 1 | sed -n 's/.* cov: \([0-9]*\).*/\1/p')
  if [ -n "$KEEP" ]; then
    mkdir -p "$KEEP/$name"
    cp -R "$corpus/." "$KEEP/$name/"
  fi
  if [ $rc -ne 0 ] || ls "$artifacts" | grep -q .; then
    printf '%-22s %12s %8s %7s %7s  %s\n' "$name" "${execs:-?}" "${rate:-?}" "$entries" "${cov:-?}" "FINDING (exit $rc)"
    tail -n 60 "$log"
    for a in "$artifacts"/*; do
      [ -f "$a" ] || continue
      echo "--- $(basename "$a") ($(wc -c <"$a") bytes):"
      od -An -tx1 "$a" | head -n 20
    done
    failed+=("$name")
  else
    printf '%-22s %12s %8s %7s %7s  %s\n' "$name" "${execs:-?}" "${rate:-?}" "$entries" "${cov:-?}" ok
  fi
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found problems in: ${failed[*]}" >&2
  exit 1
fi
echo "all fuzz targets ran clean"
