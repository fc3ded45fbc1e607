# libFuzzer target of CORVID.DLL's companion and MASTER.IDX readers; it compiles the portable half
# itself so that it carries the fuzzer's instrumentation, with the CRC checks waived.
add_executable(corvid_read_fuzzer ${CMAKE_CURRENT_LIST_DIR}/corvid_read_fuzzer.cpp
  ${CMAKE_SOURCE_DIR}/companions/corvid/assetstore.cpp ${CMAKE_SOURCE_DIR}/compress/crc32.cpp
  ${CMAKE_SOURCE_DIR}/base/textutil.cpp ${CMAKE_SOURCE_DIR}/base/io.cpp)
target_include_directories(corvid_read_fuzzer PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_definitions(corvid_read_fuzzer PRIVATE FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION)
target_compile_options(corvid_read_fuzzer PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                       -fno-sanitize-recover=all)
target_link_options(corvid_read_fuzzer PRIVATE -fsanitize=fuzzer,address,undefined)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/corvid_read_fuzzer)
add_test(NAME corvid_read_fuzzer
         COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch} && cp ${CMAKE_CURRENT_LIST_DIR}/corpus/corvid/* ${scratch}/ && \
$<TARGET_FILE:corvid_read_fuzzer> -max_total_time=20 -max_len=4096 -timeout=10 ${scratch}")
set_tests_properties(corvid_read_fuzzer PROPERTIES TIMEOUT 120)
