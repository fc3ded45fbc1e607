# libFuzzer target of MARLOW.DLL's dump reader; it compiles the reader and the coder itself so
# that they carry the fuzzer's instrumentation, with the CRC checks waived.
add_executable(marlow_dump_fuzzer ${CMAKE_CURRENT_LIST_DIR}/marlow_dump_fuzzer.cpp
  ${CMAKE_SOURCE_DIR}/companions/marlow/regdump.cpp ${CMAKE_SOURCE_DIR}/companions/marlow/regtree.cpp
  ${CMAKE_SOURCE_DIR}/compress/explode.cpp ${CMAKE_SOURCE_DIR}/compress/implode.cpp
  ${CMAKE_SOURCE_DIR}/compress/crc32.cpp)
target_include_directories(marlow_dump_fuzzer PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_definitions(marlow_dump_fuzzer PRIVATE FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION)
target_compile_options(marlow_dump_fuzzer PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                       -fno-sanitize-recover=all)
target_link_options(marlow_dump_fuzzer PRIVATE -fsanitize=fuzzer,address,undefined)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/marlow_dump_fuzzer)
add_test(NAME marlow_dump_fuzzer
         COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch} && cp ${CMAKE_CURRENT_LIST_DIR}/corpus/marlowdump/* ${scratch}/ && \
$<TARGET_FILE:marlow_dump_fuzzer> -max_total_time=20 -max_len=16384 -timeout=10 ${scratch}")
set_tests_properties(marlow_dump_fuzzer PROPERTIES TIMEOUT 120)

# The reader of Wine's own registry save text.
add_executable(marlow_save_fuzzer ${CMAKE_CURRENT_LIST_DIR}/marlow_save_fuzzer.cpp
  ${CMAKE_SOURCE_DIR}/companions/marlow/winesave.cpp)
target_include_directories(marlow_save_fuzzer PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_options(marlow_save_fuzzer PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                       -fno-sanitize-recover=all)
target_link_options(marlow_save_fuzzer PRIVATE -fsanitize=fuzzer,address,undefined)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/marlow_save_fuzzer)
add_test(NAME marlow_save_fuzzer
         COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch} && cp ${CMAKE_CURRENT_LIST_DIR}/corpus/marlowsave/* ${scratch}/ && \
$<TARGET_FILE:marlow_save_fuzzer> -max_total_time=20 -max_len=16384 -timeout=10 ${scratch}")
set_tests_properties(marlow_save_fuzzer PROPERTIES TIMEOUT 120)
