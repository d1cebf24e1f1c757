#!/usr/bin/env bash
# Compares the exported interface (ABI) of the built libovra.so.<major> with
# its record, abi/libovra.so.<major>.abi, made by abidw (abigail-tools).
#
#   .ci/abi.sh BUILD_DIR            compare; fail on an incompatible change
#   .ci/abi.sh BUILD_DIR --update   write the record from BUILD_DIR's library
#
# BUILD_DIR is the plain g++ build of the README's commands (RelWithDebInfo:
# abidw reads the types from the debug information); the record is made from
# such a build. The library exports only what the public headers mark with
# OVRA_API, so every exported symbol and every type it reaches counts.
#
# An incompatible change (a removed or changed symbol, a changed type layout)
# fails unless the soname's major version changed, in which case the new
# soname has no record yet and one must be added in the same commit. A
# compatible change (an added function or variable) is reported and passes;
# update the record in the same commit with --update.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:?usage: .ci/abi.sh BUILD_DIR [--update]}
MODE=${2:-compare}
START=$SECONDS

fail() { echo "abi: $*" >&2; exit 1; }
command -v abidw >/dev/null && command -v abidiff >/dev/null || fail "abigail-tools is missing"

lib=$(readlink -f "$BUILD/libovra.so")
[ -f "$lib" ] || fail "$BUILD/libovra.so is not built"
soname=$(readelf -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ -n "$soname" ] || fail "$lib has no soname"
readelf -S "$lib" | grep -F .debug_info >/dev/null ||
  fail "$lib has no debug information: use a RelWithDebInfo build"
record=abi/$soname.abi
# Stable output: no paths or line numbers, type ids from the types themselves.
ABIDW=(abidw --no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash)

if [ "$MODE" = --update ]; then
  mkdir -p abi
  "${ABIDW[@]}" --out-file "$record" "$lib"
  echo "abi: recorded the interface of $soname in $record"
  exit 0
fi
[ "$MODE" = compare ] || fail "unknown option $MODE"

if [ ! -f "$record" ]; then
  older=$(ls abi/libovra.so.*.abi 2>/dev/null | grep -vF "$record" | sort -V | tail -n 1 || true)
  if [ -n "$older" ]; then
    echo "abi: changes against $older (the previous major version), for information:"
    abidiff "$older" "$lib" || true
  fi
  fail "$soname has no record: a new major version must add one in the same commit (.ci/abi.sh $BUILD --update)"
fi

report=$(mktemp)
trap 'rm -f "$report"' EXIT
set +e
abidiff --fail-no-debug-info "$record" "$lib" >"$report" 2>&1
status=$?
set -e
# abidiff's status is a bit set: 1 error, 2 usage error, 4 ABI change,
# 8 incompatible ABI change. abidiff marks only removals as incompatible; a
# changed type layout or signature is a change a person must review. So a
# change passes only when all it does is add functions or variables.
count() { { grep "changes summary" "$report" || true; } | { grep -Eo "[0-9]+ $1" || true; } | awk '{n += $1} END {print n + 0}'; }
removed=$(count Removed)
changed=$(count Changed)
added=$(count Added)
if (( status & 3 )); then
  cat "$report"
  fail "abidiff failed (status $status)"
elif (( status & 8 )) || (( status & 4 && (removed > 0 || changed > 0 || added == 0) )); then
  cat "$report"
  fail "the interface of $soname changed in a way that can break programs built against it.
Keep the interface; or raise the major version (project(Ovra VERSION ...)), which
changes the soname, and record the new interface (.ci/abi.sh $BUILD --update);
or, for a change reviewed as compatible, update the record in the same commit."
elif (( status & 4 )); then
  cat "$report"
  echo "abi: $soname gained $added declaration(s), reported above: a compatible addition."
  echo "abi: record it in the same commit: .ci/abi.sh $BUILD --update"
else
  echo "abi: $soname matches $record"
fi
echo "abi: done ($((SECONDS - START)) s)"
