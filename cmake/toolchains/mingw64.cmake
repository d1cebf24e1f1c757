# 64-bit Windows: the MinGW-w64 cross compiler (its POSIX-threads variant,
# which has std::thread and std::mutex for GoogleTest), programs run under
# Wine. Executables are linked statically and the DLLs with the GCC runtime
# and winpthread built in, so that a program finds nothing missing under a
# fresh Wine prefix (a missing runtime DLL makes it exit 53 without a word).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(OVRA_TARGET_NAME mingw64)
set(OVRA_TARGET_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${OVRA_TARGET_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${OVRA_TARGET_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${OVRA_TARGET_TRIPLE}-windres)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
# -Wl,-Bstatic before the default libraries makes the DLL take winpthread
# from its archive as well.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -Wl,-Bstatic,--whole-archive -lwinpthread -Wl,--no-whole-archive")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT}")

# Wine runs the programs; .ci/wine-prefix.sh prepares the prefix (WINEPREFIX)
# and its server before the tests and stops them after.
find_program(OVRA_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_DEFAULT_PATH)
if(NOT OVRA_WINE)
  find_program(OVRA_WINE NAMES wine64 wine)
endif()
# The prefix lives in the build folder, so that builds never share one.
# Programs find ovra.dll through WINEPATH, as a Windows program finds the DLLs
# of its PATH: the library stays at the top of the build folder while tests
# and examples have folders of their own.
# (wine-run.sh also points GoogleTest's reports at the right folder.)
set(OVRA_WINE_PREFIX ${CMAKE_BINARY_DIR}/wine-prefix)
set(CMAKE_CROSSCOMPILING_EMULATOR /bin/sh ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh
    ${OVRA_WINE_PREFIX} ${CMAKE_BINARY_DIR} ${OVRA_WINE})

get_filename_component(OVRA_TARGET_DEPS
  "${CMAKE_CURRENT_LIST_DIR}/../../build-deps/${OVRA_TARGET_NAME}" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH /usr/${OVRA_TARGET_TRIPLE} ${OVRA_TARGET_DEPS}/prefix)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs under Wine start slowly: test time limits are scaled.
set(OVRA_TEST_TIMEOUT_SCALE 3)
