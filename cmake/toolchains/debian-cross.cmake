# Shared part of the Linux cross toolchains: Debian's cross compiler for
# OVRA_TARGET_TRIPLE, programs run under OVRA_QEMU with the target's loader
# and libraries, and what .ci/target-deps.sh unpacked for the target (its
# GoogleTest, OpenSSL and character-set modules) found before anything of the
# build machine's.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${OVRA_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${OVRA_TARGET_TRIPLE}-g++)
# The target's libraries come first: the loader would otherwise also take
# the build machine's own copies of a 32-bit x86 C library from its cache
# (/lib32), a different build of the C library than the loader's, which
# makes thread cancellation hang.
set(CMAKE_CROSSCOMPILING_EMULATOR ${OVRA_QEMU} -L /usr/${OVRA_TARGET_TRIPLE}
    -E LD_LIBRARY_PATH=/usr/${OVRA_TARGET_TRIPLE}/lib)

get_filename_component(OVRA_TARGET_DEPS
  "${CMAKE_CURRENT_LIST_DIR}/../../build-deps/${OVRA_TARGET_NAME}" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH /usr/${OVRA_TARGET_TRIPLE}
    ${OVRA_TARGET_DEPS}/prefix ${OVRA_TARGET_DEPS}/root)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The target's own character-set conversion modules, for the tests that take
# iconv as their reference; the emulated C library finds none of its own.
# They sit in the target's multiarch folder, which is named after the
# compiler's triple except on 32-bit x86 (i386-linux-gnu for i686-linux-gnu).
if(NOT OVRA_TARGET_MULTIARCH)
  set(OVRA_TARGET_MULTIARCH ${OVRA_TARGET_TRIPLE})
endif()
if(EXISTS ${OVRA_TARGET_DEPS}/root/usr/lib/${OVRA_TARGET_MULTIARCH}/gconv)
  set(OVRA_TARGET_GCONV_PATH ${OVRA_TARGET_DEPS}/root/usr/lib/${OVRA_TARGET_MULTIARCH}/gconv)
endif()
# The same for OpenSSL's provider modules (the legacy one has MD4 and DES).
if(EXISTS ${OVRA_TARGET_DEPS}/root/usr/lib/${OVRA_TARGET_MULTIARCH}/ossl-modules)
  set(OVRA_TARGET_OPENSSL_MODULES ${OVRA_TARGET_DEPS}/root/usr/lib/${OVRA_TARGET_MULTIARCH}/ossl-modules)
endif()
# Emulated programs run several times slower: test time limits are scaled.
set(OVRA_TEST_TIMEOUT_SCALE 4)
