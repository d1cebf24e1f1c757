# A lost wake-up or a thread that cannot be cancelled must fail the stress
# run, not hang it.
if(TARGET OvraStressTest)
  set_tests_properties(OvraStressTest PROPERTIES TIMEOUT 120)
endif()
