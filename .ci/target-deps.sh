#!/usr/bin/env bash
# Prepares what a toolchain in cmake/toolchains/ needs beside the compiler,
# in build-deps/<name>/ of the source tree:
#   prefix/  GoogleTest built from /usr/src/googletest with that toolchain;
#   root/    for a Debian cross target, the target's own OpenSSL (libssl3,
#            libssl-dev) and C library (for its iconv modules), fetched with
#            `apt-get download` and unpacked with `dpkg -x`, because a
#            multiarch install fails whenever the build machine's OpenSSL
#            version differs from the target's.
# Usage: .ci/target-deps.sh <toolchain-name> [jobs]. Does nothing that is
# already done. Without the target's packages, root/ stays empty and the
# build compiles the OpenSSL comparisons out.
set -euo pipefail
cd "$(dirname "$0")/.."
NAME=${1:?usage: $0 <toolchain-name> [jobs]}
JOBS=${2:-2}
TOOLCHAIN=$PWD/cmake/toolchains/$NAME.cmake
[ -f "$TOOLCHAIN" ] || { echo "no toolchain file $TOOLCHAIN" >&2; exit 2; }
DEPS=$PWD/build-deps/$NAME
mkdir -p "$DEPS"

if [ ! -f "$DEPS/prefix/.done" ]; then
  echo "building GoogleTest for $NAME"
  cmake -S /usr/src/googletest -B "$DEPS/googletest" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$DEPS/prefix" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
  cmake --build "$DEPS/googletest" -j "$JOBS" >/dev/null
  cmake --install "$DEPS/googletest" >/dev/null
  touch "$DEPS/prefix/.done"
fi

# Only the Debian cross targets name a Debian architecture. The Windows
# toolchain (mingw64) names none: Debian packages no OpenSSL for Windows, so
# its build finds no libcrypto and compiles the OpenSSL comparisons out (the
# tests keep the published vectors).
ARCH=$(sed -n 's/^set(OVRA_DEBIAN_ARCH \([a-z0-9]*\))$/\1/p' "$TOOLCHAIN")
if [ -n "$ARCH" ] && [ ! -f "$DEPS/root/.done" ]; then
  echo "fetching OpenSSL and the C library's iconv modules for $ARCH"
  if ! dpkg --print-foreign-architectures | grep -qx "$ARCH"; then
    dpkg --add-architecture "$ARCH"
  fi
  apt-get update -qq >/dev/null 2>&1 || true
  rm -rf "$DEPS/debs" "$DEPS/root"
  mkdir -p "$DEPS/debs" "$DEPS/root"
  if (cd "$DEPS/debs" && apt-get download -qq "libssl3:$ARCH" "libssl-dev:$ARCH" "libc6:$ARCH") \
       >/dev/null 2>&1; then
    for deb in "$DEPS"/debs/*.deb; do dpkg -x "$deb" "$DEPS/root"; done
    touch "$DEPS/root/.done"
  else
    echo "the $ARCH packages could not be fetched: the OpenSSL comparisons are compiled out" >&2
  fi
fi
