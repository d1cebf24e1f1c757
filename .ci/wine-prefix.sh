#!/usr/bin/env bash
# Prepares and stops the Wine prefix that the mingw64 configuration's tests
# run in (<build dir>/wine-prefix, the WINEPREFIX its toolchain file gives
# the test programs).
#   .ci/wine-prefix.sh start <build dir>   before ctest
#   .ci/wine-prefix.sh stop <build dir>    after it
# Wine's background server would otherwise be started by the first test
# program and keep that program's standard output open, so that ctest (or a
# pipeline) waits for it and every test pays the server's start-up. Here it
# is started first, with all three standard streams redirected, kept running
# (-p) until `stop`, and the prefix is made once (wineboot -i).
set -euo pipefail
ACTION=${1:?usage: $0 start|stop <build dir>}
BUILD=${2:?usage: $0 start|stop <build dir>}
export WINEPREFIX
WINEPREFIX=$(cd "$BUILD" && pwd)/wine-prefix
export WINEDEBUG=-all
WINESERVER=$(command -v wineserver || echo /usr/lib/wine/wineserver)
# wineboot is a Windows program; without the wine package's wrapper the
# 64-bit loader (package wine64) runs it.
if command -v wineboot >/dev/null; then
  WINEBOOT=(wineboot)
else
  WINEBOOT=("$(command -v wine64 || echo /usr/lib/wine/wine64)" wineboot)
fi
case "$ACTION" in
  start)
    mkdir -p "$WINEPREFIX"
    "$WINESERVER" -p </dev/null >/dev/null 2>&1
    "${WINEBOOT[@]}" -i </dev/null >/dev/null 2>&1
    echo "Wine prefix ready: $WINEPREFIX"
    ;;
  stop)
    "$WINESERVER" -k </dev/null >/dev/null 2>&1 || true
    ;;
  *)
    echo "usage: $0 start|stop <build dir>" >&2
    exit 2
    ;;
esac
