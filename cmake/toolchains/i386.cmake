# 32-bit x86, little-endian Linux: Debian's i686-linux-gnu cross compiler, tests under qemu-i386.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(OVRA_TARGET_NAME i386)
set(OVRA_TARGET_TRIPLE i686-linux-gnu)
set(OVRA_TARGET_MULTIARCH i386-linux-gnu)
set(OVRA_DEBIAN_ARCH i386)
set(OVRA_QEMU qemu-i386)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
