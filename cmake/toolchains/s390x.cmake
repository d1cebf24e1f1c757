# 64-bit IBM Z, big-endian Linux: Debian's s390x-linux-gnu cross compiler, tests under qemu-s390x.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(OVRA_TARGET_NAME s390x)
set(OVRA_TARGET_TRIPLE s390x-linux-gnu)
set(OVRA_DEBIAN_ARCH s390x)
set(OVRA_QEMU qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
