# Runtime facilities measured side by side with the standard library or the
# C library: one executable per facility, each benchmark pair registered as
# "<Operation>/ovra" and "<Operation>/ref".
foreach(name format message collect finder utf8)
  add_executable(ovra_bench_${name} ${CMAKE_CURRENT_SOURCE_DIR}/runtime/${name}.cpp)
  target_link_libraries(ovra_bench_${name} PRIVATE ovra ovra_build_flags benchmark::benchmark
                        benchmark::benchmark_main)
  set_target_properties(ovra_bench_${name} PROPERTIES
                        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
endforeach()
# The text kernels against the loops they replaced (see runtime/text.cpp).
add_executable(ovra_bench_text ${CMAKE_CURRENT_SOURCE_DIR}/runtime/text.cpp
               $<TARGET_OBJECTS:ovra_text_objects>)
target_include_directories(ovra_bench_text PRIVATE ${PROJECT_SOURCE_DIR}/Src)
target_link_libraries(ovra_bench_text PRIVATE ovra benchmark::benchmark benchmark::benchmark_main)
set_target_properties(ovra_bench_text PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
