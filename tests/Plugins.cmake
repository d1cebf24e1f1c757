# Plugins for the TLibrary tests: small shared libraries built on the runtime,
# one for each way a library can meet the entry-point contract. They live in
# a folder of their own, next to nothing else.
set(OVRA_TEST_PLUGIN_DIR ${CMAKE_CURRENT_BINARY_DIR}/plugins)
set(OVRA_TEST_PLUGINS accept refuse noentry plain)
set(OVRA_TEST_PLUGIN_SOURCE_accept PluginAccept.cpp)
set(OVRA_TEST_PLUGIN_SOURCE_refuse PluginRefuse.cpp)
set(OVRA_TEST_PLUGIN_SOURCE_noentry PluginNoEntry.cpp)
set(OVRA_TEST_PLUGIN_SOURCE_plain PluginPlain.cpp)

set(OVRA_TEST_PLUGIN_DEFINITIONS OVRA_TEST_PLUGIN_DIR="${OVRA_TEST_PLUGIN_DIR}")
foreach(plugin ${OVRA_TEST_PLUGINS})
  set(target ovra_test_${plugin})
  add_library(${target} SHARED plugins/${OVRA_TEST_PLUGIN_SOURCE_${plugin}})
  target_link_libraries(${target} PRIVATE ovra)
  # Hidden by default, as a library built on the runtime would be: the
  # header's export marks must be enough for the entry points.
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${OVRA_TEST_PLUGIN_DIR})
  string(TOUPPER ${plugin} upper)
  list(APPEND OVRA_TEST_PLUGIN_DEFINITIONS
       OVRA_TEST_PLUGIN_${upper}="$<TARGET_FILE:${target}>"
       OVRA_TEST_PLUGIN_${upper}_NAME="$<TARGET_FILE_NAME:${target}>")
endforeach()

# The test programs export OvraTestPluginEvent (and the loader functions they
# stand in for) to the plugins and the library.
foreach(test OvraLibraryTest OvraLibraryPSTest OvraAllocSweepTest)
  if(TARGET ${test})
    target_compile_definitions(${test} PRIVATE ${OVRA_TEST_PLUGIN_DEFINITIONS})
    target_include_directories(${test} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/plugins)
    set_target_properties(${test} PROPERTIES ENABLE_EXPORTS ON)
    foreach(plugin ${OVRA_TEST_PLUGINS})
      add_dependencies(${test} ovra_test_${plugin})
    endforeach()
  endif()
endforeach()
if(TARGET OvraSystemTest)
  # It stands in for uname, which the library must reach through it.
  set_target_properties(OvraSystemTest PROPERTIES ENABLE_EXPORTS ON)
endif()

# The example host loads the example plugin through TLibrary.
if(TARGET ovra_plugin_host AND TARGET ovra_hello_plugin)
  add_test(NAME ExamplePluginHost
           COMMAND ovra_plugin_host $<TARGET_FILE:ovra_hello_plugin>)
  # The host checks every step itself and fails with a non-zero exit code.
  set_tests_properties(ExamplePluginHost PROPERTIES TIMEOUT 120)
endif()
