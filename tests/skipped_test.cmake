# The stand-in of a test program that a configuration leaves out (see
# ovra_skip_test in tests/CMakeLists.txt): it prints why, which ctest reports
# as a skip, and when GoogleTest's reports are collected (GTEST_OUTPUT=xml:
# <folder>/) it adds one of its own with the program as one skipped case, so
# that the summary of a run counts and lists it with the tests skipped inside
# the programs.
#   cmake -DNAME=<test> -DREASON=<text> -P skipped_test.cmake
set(message "not on Windows: ${REASON}")
if(DEFINED ENV{GTEST_OUTPUT} AND "$ENV{GTEST_OUTPUT}" MATCHES "^xml:(.*/)$")
  set(folder "${CMAKE_MATCH_1}")
  string(REPLACE "&" "&amp;" text "${message}")
  string(REPLACE "<" "&lt;" text "${text}")
  string(REPLACE "\"" "&quot;" text "${text}")
  file(WRITE "${folder}${NAME}.xml"
"<?xml version=\"1.0\" encoding=\"UTF-8\"?>
<testsuites tests=\"1\" failures=\"0\" disabled=\"0\" errors=\"0\" name=\"AllTests\">
  <testsuite name=\"${NAME}\" tests=\"1\" failures=\"0\" disabled=\"0\" skipped=\"1\" errors=\"0\">
    <testcase name=\"WholeProgram\" status=\"run\" result=\"skipped\" classname=\"${NAME}\">
      <skipped message=\"${text}\"/>
    </testcase>
  </testsuite>
</testsuites>
")
endif()
message("${message}")
