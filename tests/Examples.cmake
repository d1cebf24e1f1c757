# Every example program runs as a test: each checks its own results and
# exits non-zero on a surprise. (The plugin host runs in Plugins.cmake.)
foreach(example ovra_demo ovra_strings ovra_collections ovra_files ovra_crypto)
  if(TARGET ${example})
    add_test(NAME Example_${example} COMMAND ${example})
    set_tests_properties(Example_${example} PROPERTIES TIMEOUT 120)
  endif()
endforeach()
