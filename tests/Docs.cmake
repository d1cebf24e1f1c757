# The programs shown in docs/ must compile against the headers as written and,
# in the plain native build, link and succeed. Instrumented and emulated
# builds would need their own flags for an outside program: they compile only.
set(OVRA_DOCS_LIBRARY_DIR "")
if(NOT OVRA_SANITIZE AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  set(OVRA_DOCS_LIBRARY_DIR $<TARGET_FILE_DIR:ovra>)
endif()
add_test(NAME DocsExamplesTest
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/docs/docs_examples.sh
                 ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/Include
                 ${CMAKE_CXX_COMPILER} "${CMAKE_CXX_FLAGS}" ${OVRA_DOCS_LIBRARY_DIR})
set_tests_properties(DocsExamplesTest PROPERTIES TIMEOUT 600)
