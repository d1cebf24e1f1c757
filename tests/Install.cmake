# The installed library must serve outside programs (CMake package and
# pkg-config). Instrumented and emulated builds need matching flags in the
# outside program, so the check runs in the plain native build.
if(NOT OVRA_SANITIZE AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  set(OVRA_INSTALLED_TOOL_VERSION "")
  if(TARGET ovra_cli)
    set(OVRA_INSTALLED_TOOL_VERSION ${PROJECT_VERSION})
  endif()
  add_test(NAME InstallTest
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/install/install_test.sh
                   ${CMAKE_BINARY_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/install/consumer
                   "${OVRA_INSTALLED_TOOL_VERSION}")
  set_tests_properties(InstallTest PROPERTIES TIMEOUT 300)
endif()
