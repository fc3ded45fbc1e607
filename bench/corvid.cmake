# CORVID.DLL speed under Wine (bench/run-corvid.sh builds and runs it).
if(WIN32)
  add_executable(corvid_bench corvid_bench.cpp)
  target_include_directories(corvid_bench PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_options(corvid_bench PRIVATE ${ORVALIS_WARNINGS})
  set_target_properties(corvid_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(corvid_bench CORVID)
endif()
