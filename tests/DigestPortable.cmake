# The digest tests once more over the portable SHA-1 code: on processors with
# SHA instructions the library always takes those, so the portable transform
# is built here on its own, straight from the source, with them switched off.
add_executable(OvraCryptDigestPortableTest
  ${CMAKE_CURRENT_SOURCE_DIR}/OvraCryptDigestTest.cpp
  ${PROJECT_SOURCE_DIR}/Src/OvraCryptDigest.cpp)
target_include_directories(OvraCryptDigestPortableTest PRIVATE
  ${PROJECT_SOURCE_DIR}/Include ${CMAKE_CURRENT_SOURCE_DIR})
target_compile_definitions(OvraCryptDigestPortableTest PRIVATE OVRA_DIGEST_PORTABLE_ONLY)
target_link_libraries(OvraCryptDigestPortableTest PRIVATE
  GTest::gtest GTest::gtest_main Threads::Threads)
if(OpenSSL_FOUND)
  target_link_libraries(OvraCryptDigestPortableTest PRIVATE OpenSSL::Crypto)
  target_compile_definitions(OvraCryptDigestPortableTest PRIVATE OVRA_HAVE_OPENSSL=1)
endif()
# The half-gigabyte messages check the length encoding, which does not depend
# on the transform; the main digest test runs them already.
add_test(NAME OvraCryptDigestPortableTest
         COMMAND OvraCryptDigestPortableTest
                 --gtest_filter=-MessageDigestTest.MessagesLongerThan2To29BytesDigestCorrectly)
set_tests_properties(OvraCryptDigestPortableTest PROPERTIES TIMEOUT 300)
