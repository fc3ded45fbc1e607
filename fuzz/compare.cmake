# libFuzzer targets of the system-file comparison and its SYSFILE document.
# Each target compiles the sources it exercises itself, so that they carry the fuzzer's
# coverage instrumentation without changing how orvalis_core is built.
set(ORVALIS_COMPARE_FUZZ_SOURCES
  ${CMAKE_SOURCE_DIR}/items/sysfiles/filecompare.cpp
  ${CMAKE_SOURCE_DIR}/base/xmltext.cpp
  ${CMAKE_SOURCE_DIR}/items/sysfiles/sysfilexml.cpp
  ${CMAKE_SOURCE_DIR}/base/textutil.cpp ${CMAKE_SOURCE_DIR}/base/io.cpp)

# Short CTest runs work on a scratch copy of the seed corpus in the build tree, so the
# committed corpus never receives what the fuzzer finds.
function(orvalis_compare_fuzzer name)
  cmake_parse_arguments(F "" "" "CORPUS" ${ARGN})
  add_executable(${name} ${CMAKE_CURRENT_LIST_DIR}/${name}.cpp ${ORVALIS_COMPARE_FUZZ_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_options(${name} PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                         -fno-sanitize-recover=all)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
  set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/${name})
  set(copies "")
  foreach(dir ${F_CORPUS})
    string(APPEND copies " && cp ${CMAKE_CURRENT_LIST_DIR}/corpus/${dir}/* ${scratch}/")
  endforeach()
  add_test(NAME ${name}
           COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch}${copies} && \
$<TARGET_FILE:${name}> -max_total_time=20 -max_len=4096 -timeout=10 ${scratch}")
  set_tests_properties(${name} PROPERTIES TIMEOUT 120)
endfunction()

orvalis_compare_fuzzer(compare_textdiff_fuzzer CORPUS textdiff)
orvalis_compare_fuzzer(compare_inidiff_fuzzer CORPUS inidiff)
orvalis_compare_fuzzer(compare_sysfilexml_fuzzer CORPUS textdiff inidiff)
