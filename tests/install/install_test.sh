#!/usr/bin/env bash
# Installs the built library into a temporary prefix, then builds and runs an
# outside program against it twice: through the CMake package and through
# pkg-config.
#   install_test.sh <build dir> <consumer source dir> <tool version or "">
# The Windows build (MinGW-w64, programs run under Wine) adds:
#   ... --windows <C++ compiler> <wine-run.sh> <wine prefix> <wine>
# and is checked as Windows users get it: the zip archive that cpack makes is
# unpacked into the prefix, and the outside program runs with only the
# unpacked bin folder on its DLL search path, so that it cannot pick up the
# build folder's copy of ovra.dll.
set -euo pipefail
build_dir=$1
source_dir=$2
tool_version=${3:-}  # the version the installed ovra program must report; empty: not built
windows=false
if [ "${4:-}" = --windows ]; then
  windows=true
  cxx=$5
  wine_run=$6
  wine_prefix=$7
  wine=$8
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

if $windows; then
  version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' "$build_dir/CPackConfig.cmake")
  cpack --config "$build_dir/CPackConfig.cmake" -B "$work/packages" >/dev/null
  archive=$work/packages/ovra-$version-win64.zip
  test -f "$archive"
  (cd "$work" && cmake -E tar xf "$archive")
  # Everything sits below one folder named as the archive.
  [ "$(ls "$work" | grep -v '^packages$')" = "ovra-$version-win64" ]
  mv "$work/ovra-$version-win64" "$prefix"
  libdir=$prefix/lib
  test -f "$prefix/bin/ovra.dll"                 # the library, found beside the programs
  test -f "$libdir/libovra.dll.a"                # its import library, to link against
  test -f "$prefix/share/doc/ovra/copyright"
  # Runs a Windows program under Wine with only the unpacked DLLs on its path.
  run() { /bin/sh "$wine_run" "$wine_prefix" "$prefix/bin" "$wine" "$@"; }
  exe=.exe
else
  cmake --install "$build_dir" --prefix "$prefix" >/dev/null
  libdir=$(ls -d "$prefix"/lib*/ | head -n 1)
  test -L "$libdir/libovra.so"                    # development link
  test -e "$libdir/libovra.so.1"                  # soname link
  [ "$(readelf -d "$libdir/libovra.so.1" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')" = libovra.so.1 ]
  # The program and the pkg-config build find the library through their
  # run path, so nothing is added to the loader's search here.
  run() { "$@"; }
  exe=
fi
test -f "$prefix/include/ovra/Ovra.h"
test -f "$prefix/include/ovra/OvraPlatform.h"
test -f "$libdir/cmake/Ovra/OvraConfig.cmake"
test -f "$libdir/pkgconfig/ovra.pc"

# The command-line program, when built, finds the installed library by itself.
if [ -n "$tool_version" ]; then
  test -x "$prefix/bin/ovra$exe"
  test -f "$prefix/share/man/man1/ovra.1"   # its manual page
  # (Windows programs end their lines with CR LF.)
  [ "$(run "$prefix/bin/ovra$exe" --version | tr -d '\r')" = "ovra $tool_version" ]
  [ "$(printf abc | run "$prefix/bin/ovra$exe" md5 | tr -d '\r')" = "900150983cd24fb0d6963f7d28e17f72  -" ]
fi

# 1. CMake package
if $windows; then
  # The outside program is linked statically with the compiler's runtime, as
  # the build's own programs are, so that it needs no DLL but ovra.dll.
  cmake -S "$source_dir" -B "$work/cmake-build" -G Ninja -DCMAKE_SYSTEM_NAME=Windows \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_EXE_LINKER_FLAGS=-static \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
else
  cmake -S "$source_dir" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
fi
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH=$libdir run "$work/cmake-build/consumer$exe"

# 2. pkg-config
export PKG_CONFIG_PATH=$libdir/pkgconfig
if $windows; then
  # Only the package's own file: the build machine's .pc files are not Windows ones.
  export PKG_CONFIG_LIBDIR=$libdir/pkgconfig
  "$cxx" -std=c++17 "$source_dir/consumer.cpp" -o "$work/pkg-consumer.exe" \
    $(pkg-config --cflags --libs ovra) -static-libgcc -static-libstdc++ \
    -Wl,-Bstatic -lwinpthread -Wl,-Bdynamic
else
  c++ -std=c++17 "$source_dir/consumer.cpp" -o "$work/pkg-consumer" $(pkg-config --cflags --libs ovra) \
    -Wl,-rpath,"$libdir"
fi
run "$work/pkg-consumer$exe"
echo "install test passed"
