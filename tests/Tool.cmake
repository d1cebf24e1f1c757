# The ovra program compared with the system's own tools on random files.
if(TARGET ovra_cli)
  # The emulator (if any) runs the program in the script, which bash itself
  # does not need.
  add_test(NAME ToolTest
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/tool/tool_test.sh
                   $<TARGET_FILE:ovra_cli> ${PROJECT_VERSION} ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(ToolTest PROPERTIES TIMEOUT 900)
endif()
