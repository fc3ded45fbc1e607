# MARLOW.DLL speed under Wine (bench/run-marlow.sh builds and runs it).
if(WIN32)
  add_executable(marlow_bench marlow_bench.cpp)
  target_include_directories(marlow_bench PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_options(marlow_bench PRIVATE ${ORVALIS_WARNINGS})
  target_link_libraries(marlow_bench PRIVATE advapi32)
  set_target_properties(marlow_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(marlow_bench MARLOW)
endif()
