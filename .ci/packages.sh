#!/usr/bin/env bash
# Builds the Debian packages (libovra1, libovra-dev, ovra-tools) with CPack,
# checks their contents and metadata, lints them, installs them on this
# machine, builds and runs the outside program of tests/install/ against the
# installed copy (CMake package and pkg-config), runs `ovra --version`, and
# removes the packages again, failure or not, leaving the machine as it was.
#
# Usage: .ci/packages.sh [BUILD_DIR]     (default: build-deb; needs root)
#
# The build folder is configured here as Debian builds packages: installation
# prefix /usr (so the library lands in the multiarch directory), the flags of
# dpkg-buildflags, no tests, examples or benchmarks. Set
# CMAKE_CXX_COMPILER_LAUNCHER=ccache in the environment to reuse objects.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
BUILD=${1:-build-deb}
JOBS=${JOBS:-2}
START=$SECONDS

log() { printf '\n=== %s (%d s) ===\n' "$*" $((SECONDS - START)); }
fail() { echo "packages: $*" >&2; exit 1; }

[ "$(id -u)" = 0 ] || fail "installing packages needs root"
for tool in cpack dpkg-deb dpkg-shlibdeps lintian doxygen pkg-config readelf; do
  command -v "$tool" >/dev/null || fail "$tool is missing"
done

VERSION=$(sed -n 's/^project(Ovra VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
MAJOR=${VERSION%%.*}
RUNTIME=libovra$MAJOR
PACKAGES=("$RUNTIME" libovra-dev ovra-tools)   # in installation order
ARCH=$(dpkg --print-architecture)
MULTIARCH=$(dpkg-architecture -qDEB_HOST_MULTIARCH)

# --- build and package --------------------------------------------------------
log "configure and build $BUILD (prefix /usr, dpkg-buildflags)"
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
CXXFLAGS_DEB="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
CFLAGS_DEB="$(dpkg-buildflags --get CFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
LDFLAGS_DEB=$(dpkg-buildflags --get LDFLAGS)
cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr \
  -DCMAKE_CXX_FLAGS="$CXXFLAGS_DEB" -DCMAKE_C_FLAGS="$CFLAGS_DEB" \
  -DCMAKE_SHARED_LINKER_FLAGS="$LDFLAGS_DEB" -DCMAKE_EXE_LINKER_FLAGS="$LDFLAGS_DEB" \
  -DOVRA_BUILD_TESTS=OFF -DOVRA_BUILD_EXAMPLES=OFF -DOVRA_BUILD_BENCH=OFF >/dev/null
cmake --build "$BUILD" -j "$JOBS"
cmake --build "$BUILD" -j "$JOBS" --target docs

log "cpack"
rm -rf "$BUILD/packages"
(cd "$BUILD" && cpack -G DEB >/dev/null)
deb_of() { echo "$BUILD/packages/${1}_${VERSION}-1_$ARCH.deb"; }
DEBS=()
for pkg in "${PACKAGES[@]}"; do
  [ -f "$(deb_of "$pkg")" ] || fail "$(deb_of "$pkg") was not made"
  DEBS+=("$(deb_of "$pkg")")
done

# --- contents and metadata ----------------------------------------------------
log "contents and metadata"
listing() { dpkg-deb -c "$(deb_of "$1")" | awk '{print $6}'; }
has() {  # has PACKAGE PATH: the package holds PATH (a file or a link)
  listing "$1" | grep -x "\./${2#/}" >/dev/null || fail "$1 lacks $2"
}
field() { dpkg-deb -f "$(deb_of "$1")" "$2"; }
libdir=usr/lib/$MULTIARCH
has "$RUNTIME" "$libdir/libovra.so.$VERSION"
has "$RUNTIME" "$libdir/libovra.so.$MAJOR"
has libovra-dev "$libdir/libovra.so"
has libovra-dev usr/include/ovra/Ovra.h
has libovra-dev usr/include/ovra/OvraPlatform.h
has libovra-dev "$libdir/cmake/Ovra/OvraConfig.cmake"
has libovra-dev "$libdir/cmake/Ovra/OvraConfigVersion.cmake"
has libovra-dev "$libdir/pkgconfig/ovra.pc"
has libovra-dev usr/share/doc/libovra-dev/html/index.html
has ovra-tools usr/bin/ovra
# The manual page goes with the program whenever the build installs one.
if grep -q '/man1' "$BUILD/tools/cmake_install.cmake" 2>/dev/null; then
  listing ovra-tools | grep '^\./usr/share/man/man1/ovra\.1' >/dev/null ||
    fail "ovra-tools lacks the manual page"
fi
# Nothing outside /usr, and each file in exactly one package.
for pkg in "${PACKAGES[@]}"; do
  outside=$(listing "$pkg" | grep -v -e '^\./$' -e '^\./usr/' || true)
  [ -z "$outside" ] || fail "$pkg installs outside /usr: $outside"
done
dups=$(for deb in "${DEBS[@]}"; do dpkg-deb -c "$deb" | awk '$1 !~ /^d/ {print $6}'; done | sort | uniq -d)
[ -z "$dups" ] || fail "files in more than one package: $dups"
for pkg in "${PACKAGES[@]}"; do
  [ "$(field "$pkg" Architecture)" = "$ARCH" ] || fail "$pkg: wrong architecture"
  [ "$(field "$pkg" Version)" = "$VERSION-1" ] || fail "$pkg: wrong version"
  echo "$pkg: Section $(field "$pkg" Section); Depends: $(field "$pkg" Depends)"
done
field "$RUNTIME" Depends | grep 'libc6' >/dev/null || fail "$RUNTIME: no computed libc6 dependency"
field libovra-dev Depends | grep -F >/dev/null "$RUNTIME (= $VERSION-1)" || fail "libovra-dev must depend on $RUNTIME (= $VERSION-1)"
field ovra-tools Depends | grep -F >/dev/null "$RUNTIME (= $VERSION-1)" || fail "ovra-tools must depend on $RUNTIME (= $VERSION-1)"
dpkg-deb --ctrl-tarfile "$(deb_of "$RUNTIME")" | tar -xO ./shlibs | grep -x >/dev/null "libovra $MAJOR $RUNTIME (>= $VERSION-1)" ||
  fail "$RUNTIME: wrong shlibs"
dpkg-deb --ctrl-tarfile "$(deb_of "$RUNTIME")" | tar -xO ./triggers | grep -x >/dev/null 'activate-noawait ldconfig' ||
  fail "$RUNTIME: no ldconfig trigger"

# --- lintian ------------------------------------------------------------------
# Errors fail; warnings are printed. Accepted warnings are overridden inside
# the packages (cmake/debian/*.lintian-overrides), each with its reason.
log "lintian"
lintian --fail-on error --tag-display-limit 0 "${DEBS[@]}"

# --- install, use, remove ---------------------------------------------------
installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }
remove_packages() {
  local status=$?
  local present=()
  for ((k = ${#PACKAGES[@]} - 1; k >= 0; k--)); do
    if dpkg-query -W "${PACKAGES[k]}" >/dev/null 2>&1; then present+=("${PACKAGES[k]}"); fi
  done
  if [ ${#present[@]} -gt 0 ]; then
    log "dpkg -r ${present[*]}"
    dpkg -r "${present[@]}" >/dev/null
    # Nothing stays behind, not even a record of configuration files.
    for pkg in "${present[@]}"; do
      if dpkg-query -W "$pkg" >/dev/null 2>&1 &&
         [ "$(dpkg-query -W -f='${db:Status-Status}' "$pkg")" != not-installed ]; then
        dpkg --purge "$pkg" >/dev/null
      fi
    done
  fi
  [ -n "${WORK:-}" ] && rm -rf "$WORK"
  return $status
}
for pkg in "${PACKAGES[@]}"; do
  if installed "$pkg"; then
    # Only this script installs these names; an earlier run was interrupted.
    echo "note: $pkg is installed already (an interrupted earlier run); removing it first"
  fi
done
WORK=
trap remove_packages EXIT
remove_packages
WORK=$(mktemp -d)

log "dpkg -i"
dpkg -i "${DEBS[@]}" >/dev/null
for pkg in "${PACKAGES[@]}"; do installed "$pkg" || fail "$pkg did not install"; done
test -f /usr/share/doc/libovra-dev/html/index.html

log "outside program against the installed packages"
# 1. CMake package, found in the system's own directories.
cmake -S tests/install/consumer -B "$WORK/cmake-build" -G Ninja >/dev/null
cmake --build "$WORK/cmake-build" >/dev/null
grep -q "Ovra_DIR:PATH=/usr/lib/$MULTIARCH/cmake/Ovra" "$WORK/cmake-build/CMakeCache.txt" ||
  fail "find_package(Ovra) did not find the installed package"
"$WORK/cmake-build/consumer"
# 2. pkg-config, from its default search path.
[ "$(pkg-config --modversion ovra)" = "$VERSION" ] || fail "pkg-config reports another version"
c++ -std=c++17 tests/install/consumer/consumer.cpp -o "$WORK/pkg-consumer" $(pkg-config --cflags --libs ovra)
"$WORK/pkg-consumer"
loaded=$(ldd "$WORK/pkg-consumer" | sed -n "s/^[[:space:]]*libovra\.so\.$MAJOR => \([^ ]*\).*/\1/p")
[ -n "$loaded" ] && [ "$(realpath "$loaded")" = "$(realpath "/usr/lib/$MULTIARCH/libovra.so.$MAJOR")" ] ||
  fail "the program did not load the installed library (${loaded:-none})"

log "ovra --version"
[ "$(command -v ovra)" = /usr/bin/ovra ] || fail "ovra is not /usr/bin/ovra"
version_text=$(ovra --version)
echo "$version_text"
[[ "${version_text%%$'\n'*}" == *"$VERSION"* ]] || fail "ovra --version does not report $VERSION"
[ "$(printf abc | ovra md5)" = "900150983cd24fb0d6963f7d28e17f72  -" ] || fail "ovra md5 gives a wrong digest"

trap - EXIT
remove_packages
for pkg in "${PACKAGES[@]}"; do
  ! dpkg-query -W "$pkg" >/dev/null 2>&1 ||
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$pkg")" = not-installed ] || fail "$pkg is still known to dpkg"
done
[ ! -e /usr/include/ovra ] && [ ! -e /usr/bin/ovra ] && [ ! -e "/usr/lib/$MULTIARCH/libovra.so.$MAJOR" ] ||
  fail "files of the packages are left behind"
log "packages passed"
