# 64-bit ARM, little-endian Linux: Debian's aarch64-linux-gnu cross compiler, tests under qemu-aarch64.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(OVRA_TARGET_NAME aarch64)
set(OVRA_TARGET_TRIPLE aarch64-linux-gnu)
set(OVRA_DEBIAN_ARCH arm64)
set(OVRA_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
