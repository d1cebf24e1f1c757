# The text kernel tests call the kernels themselves, which the library does
# not export: they link the kernel objects (built with the same flags as in
# the library) next to the library.
if(TARGET OvraTextTest)
  target_sources(OvraTextTest PRIVATE $<TARGET_OBJECTS:ovra_text_objects>)
  target_include_directories(OvraTextTest PRIVATE ${PROJECT_SOURCE_DIR}/Src)
endif()
