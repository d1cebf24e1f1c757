# x86-64 Linux with clang and LLVM's C++ library (libc++) instead of GCC's;
# GoogleTest is built for it by .ci/target-deps.sh with the same flags.
set(OVRA_TARGET_NAME clang-libcxx)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-stdlib=libc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-stdlib=libc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-stdlib=libc++")
get_filename_component(OVRA_TARGET_DEPS
  "${CMAKE_CURRENT_LIST_DIR}/../../build-deps/${OVRA_TARGET_NAME}" ABSOLUTE)
list(PREPEND CMAKE_PREFIX_PATH ${OVRA_TARGET_DEPS}/prefix)
