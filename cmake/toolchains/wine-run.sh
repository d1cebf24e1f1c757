#!/bin/sh
# Runs a Windows program of the mingw64 build under Wine (the toolchain's
# CMAKE_CROSSCOMPILING_EMULATOR):
#   wine-run.sh <wine prefix> <folder of ovra.dll> <wine> <program> [args...]
# GoogleTest takes a report path as absolute only with a drive letter, so a
# POSIX absolute path in GTEST_OUTPUT (xml:/some/dir/) is handed on through
# Z:, Wine's drive for the POSIX root; otherwise the reports would land below
# each program's working folder.
prefix=$1
dlls=$2
wine=$3
shift 3
case "${GTEST_OUTPUT-}" in
  xml:/*) GTEST_OUTPUT="xml:Z:${GTEST_OUTPUT#xml:}"; export GTEST_OUTPUT ;;
esac
WINEPREFIX=$prefix WINEDEBUG=-all WINEPATH=$dlls exec "$wine" "$@"
