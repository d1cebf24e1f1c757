#!/usr/bin/env bash
# Installs the built library into a temporary prefix, then builds and runs an
# outside program against it twice: through the CMake package and through
# pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$2
tool_version=${3:-}  # the version the installed ovra program must report; empty: not built
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(ls -d "$prefix"/lib*/ | head -n 1)
test -L "$libdir/libovra.so"                    # development link
test -e "$libdir/libovra.so.1"                  # soname link
[ "$(readelf -d "$libdir/libovra.so.1" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')" = libovra.so.1 ]
test -f "$prefix/include/ovra/Ovra.h"
test -f "$prefix/include/ovra/OvraPlatform.h"
test -f "$libdir/cmake/Ovra/OvraConfig.cmake"
test -f "$libdir/pkgconfig/ovra.pc"

# The command-line program, when built, finds the installed library by itself.
if [ -n "$tool_version" ]; then
  test -x "$prefix/bin/ovra"
  test -f "$prefix/share/man/man1/ovra.1"   # its manual page
  [ "$("$prefix/bin/ovra" --version)" = "ovra $tool_version" ]
  [ "$(printf abc | "$prefix/bin/ovra" md5)" = "900150983cd24fb0d6963f7d28e17f72  -" ]
fi

# 1. CMake package
cmake -S "$source_dir" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/cmake-build/consumer"

# 2. pkg-config
export PKG_CONFIG_PATH=$libdir/pkgconfig
c++ -std=c++17 "$source_dir/consumer.cpp" -o "$work/pkg-consumer" $(pkg-config --cflags --libs ovra) \
  -Wl,-rpath,"$libdir"
"$work/pkg-consumer"
echo "install test passed"
