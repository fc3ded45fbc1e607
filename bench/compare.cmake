# Speed of the system-file comparison (bench/run-compare.sh builds the "release" preset and runs it).
if(NOT WIN32)
  add_executable(compare_bench ${CMAKE_CURRENT_LIST_DIR}/compare_bench.cpp)
  target_link_libraries(compare_bench PRIVATE orvalis_core)
  target_compile_options(compare_bench PRIVATE ${ORVALIS_WARNINGS})
endif()
