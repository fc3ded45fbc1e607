# Implode/explode speed and ratio (bench/run-compress.sh builds the "release" preset and runs it).
if(NOT WIN32)
  add_executable(compress_bench ${CMAKE_CURRENT_LIST_DIR}/compress_bench.cpp)
  target_link_libraries(compress_bench PRIVATE orvalis_core)
  target_compile_options(compress_bench PRIVATE ${ORVALIS_WARNINGS})
endif()
