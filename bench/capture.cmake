if(WIN32)
  add_executable(dirscan_bench dirscan_bench.cpp)
  target_link_libraries(dirscan_bench PRIVATE halvern_engine)
  set_target_properties(dirscan_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endif()
if(WIN32)
  # The report and the restore (bench/run-engine.sh).
  add_executable(engine_bench engine_bench.cpp ../exports/create_exports.cpp ../exports/report_exports.cpp
                 ../exports/restore_exports.cpp)
  target_link_libraries(engine_bench PRIVATE halvern_engine orvalis_testsupport)
  target_compile_definitions(engine_bench PRIVATE ORVALIS_BIN_DIR="${CMAKE_BINARY_DIR}/bin")
  set_target_properties(engine_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(engine_bench MARLOW CORVID TAMBRELL)
endif()
