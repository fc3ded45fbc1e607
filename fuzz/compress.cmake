# libFuzzer targets of the implode/explode coders. Like the other targets, each compiles
# the coder sources itself so that they carry the fuzzer's instrumentation.
set(ORVALIS_COMPRESS_FUZZ_SOURCES
  ${CMAKE_SOURCE_DIR}/compress/implode.cpp
  ${CMAKE_SOURCE_DIR}/compress/explode.cpp
  ${CMAKE_SOURCE_DIR}/compress/coder_mem.cpp)

# The CTest runs are short and work on a scratch copy of the seed corpus in the build tree.
function(orvalis_compress_fuzzer name corpus)
  add_executable(${name} ${CMAKE_CURRENT_LIST_DIR}/${name}.cpp ${ORVALIS_COMPRESS_FUZZ_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_options(${name} PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                         -fno-sanitize-recover=all)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
  set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/${name})
  add_test(NAME ${name}_short
           COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch} && \
cp ${CMAKE_CURRENT_LIST_DIR}/corpus/${corpus}/* ${scratch}/ && \
$<TARGET_FILE:${name}> -max_total_time=20 -max_len=65536 -timeout=10 ${scratch}")
  set_tests_properties(${name}_short PROPERTIES TIMEOUT 120)
endfunction()

orvalis_compress_fuzzer(compress_explode_fuzzer explode)
orvalis_compress_fuzzer(compress_roundtrip_fuzzer roundtrip)
