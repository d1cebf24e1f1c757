# System-call fault tests. They link a test build of the library made from the
# very objects of libovra.so plus one object that hands out the library's
# private system-call table, so that a test can make one call fail; libovra.so
# itself exports nothing more. Each faults/*Test.cpp becomes its own program.
ovra_link_library(ovra_faults faults/OvraSysCallAccess.cpp)
target_include_directories(ovra_faults PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/faults)
set_target_properties(ovra_faults PROPERTIES
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/faults)
# The access functions are exported by their own marks; the rest of the file
# follows the library's hidden default.

# A library for the loader tests with the entry points of the contract, which
# needs nothing from the runtime, so that only one copy of it is ever loaded.
add_library(ovra_fault_plugin SHARED faults/FaultPlugin.cpp)
target_include_directories(ovra_fault_plugin PRIVATE ${PROJECT_SOURCE_DIR}/Include)
set_target_properties(ovra_fault_plugin PROPERTIES
  CXX_VISIBILITY_PRESET hidden
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/faults)

file(GLOB OVRA_FAULT_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/faults/*Test.cpp)
foreach(src ${OVRA_FAULT_TEST_SOURCES})
  get_filename_component(name ${src} NAME_WE)
  add_executable(${name} ${src})
  target_link_libraries(${name} PRIVATE ovra_faults GTest::gtest GTest::gtest_main Threads::Threads)
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/Src)
  target_compile_definitions(${name} PRIVATE
    OVRA_FAULT_PLUGIN="$<TARGET_FILE:ovra_fault_plugin>"
    OVRA_TEST_BINARY_DIR="${CMAKE_CURRENT_BINARY_DIR}")
  add_dependencies(${name} ovra_fault_plugin)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 120)
endforeach()
