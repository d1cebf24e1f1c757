# The ovra program compared with the system's own tools on random files.
if(TARGET ovra_cli)
  # The emulator (if any) runs the program in the script, which bash itself
  # does not need.
  add_test(NAME ToolTest
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/tool/tool_test.sh
                   $<TARGET_FILE:ovra_cli> ${PROJECT_VERSION} ${CMAKE_CROSSCOMPILING_EMULATOR})
  # Sanitizers change the program's memory use: the check of its peak is skipped.
  set(OVRA_TOOL_SANITIZED 0)
  if(OVRA_SANITIZE)
    set(OVRA_TOOL_SANITIZED 1)
  endif()
  set_tests_properties(ToolTest PROPERTIES TIMEOUT 900
                       ENVIRONMENT OVRA_TOOL_SANITIZED=${OVRA_TOOL_SANITIZED})
endif()

# The program's command-line helpers are unit-tested on their own (whether
# or not the program itself is built).
if(TARGET ToolCommonTest)
  target_sources(ToolCommonTest PRIVATE ${PROJECT_SOURCE_DIR}/tools/ovra/ToolCommon.cpp)
  target_include_directories(ToolCommonTest PRIVATE ${PROJECT_SOURCE_DIR}/tools/ovra)
endif()
