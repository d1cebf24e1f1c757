# The big-integer tests once more over the portable 32-bit word loops: where
# the compiler has a 128-bit type the library always takes the wide loop, so
# the source is built here into the test itself with it switched off. Its
# classes are renamed in this build so that they cannot be mistaken for the
# library's exported ones (one definition per name across the process).
add_executable(OvraCryptRsaBigIntPortableTest
  ${CMAKE_CURRENT_SOURCE_DIR}/OvraCryptRsaBigIntTest.cpp
  ${PROJECT_SOURCE_DIR}/Src/OvraCryptRsa.cpp)
target_include_directories(OvraCryptRsaBigIntPortableTest PRIVATE
  ${PROJECT_SOURCE_DIR}/Include ${PROJECT_SOURCE_DIR}/Src ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_definitions(OvraCryptRsaBigIntPortableTest PRIVATE OVRA_BIGINT_PORTABLE_ONLY
  TBigInt=TBigIntPortable TRsaPublicCipher=TRsaPublicCipherPortable)
target_link_libraries(OvraCryptRsaBigIntPortableTest PRIVATE
  ovra GTest::gtest GTest::gtest_main Threads::Threads)
if(OpenSSL_FOUND)
  target_link_libraries(OvraCryptRsaBigIntPortableTest PRIVATE OpenSSL::Crypto)
  target_compile_definitions(OvraCryptRsaBigIntPortableTest PRIVATE OVRA_HAVE_OPENSSL=1)
endif()
add_test(NAME OvraCryptRsaBigIntPortableTest COMMAND OvraCryptRsaBigIntPortableTest)
set_tests_properties(OvraCryptRsaBigIntPortableTest PROPERTIES TIMEOUT 300)
