# libFuzzer target of the snapshot index reader (and the date text of what it reads).
add_executable(store_snapshot_fuzzer ${CMAKE_CURRENT_LIST_DIR}/store_snapshot_fuzzer.cpp
  ${CMAKE_SOURCE_DIR}/store/snapshot.cpp ${CMAKE_SOURCE_DIR}/store/snapshot_reader.cpp
  ${CMAKE_SOURCE_DIR}/base/textutil.cpp ${CMAKE_SOURCE_DIR}/base/datetext.cpp ${CMAKE_SOURCE_DIR}/base/io.cpp)
target_include_directories(store_snapshot_fuzzer PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_options(store_snapshot_fuzzer PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                       -fno-sanitize-recover=all)
target_link_options(store_snapshot_fuzzer PRIVATE -fsanitize=fuzzer,address,undefined)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/store_snapshot_fuzzer)
add_test(NAME store_snapshot_fuzzer
         COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch} && cp ${CMAKE_CURRENT_LIST_DIR}/corpus/snapshot/* ${scratch}/ && \
$<TARGET_FILE:store_snapshot_fuzzer> -max_total_time=20 -max_len=8192 -timeout=10 ${scratch}")
set_tests_properties(store_snapshot_fuzzer PROPERTIES TIMEOUT 120)

# libFuzzer target of the snapshot package reader (framing, names, imploded entries).
add_executable(store_package_fuzzer ${CMAKE_CURRENT_LIST_DIR}/store_package_fuzzer.cpp
  ${CMAKE_SOURCE_DIR}/store/package.cpp ${CMAKE_SOURCE_DIR}/base/textutil.cpp ${CMAKE_SOURCE_DIR}/base/io.cpp
  ${CMAKE_SOURCE_DIR}/compress/crc32.cpp ${CMAKE_SOURCE_DIR}/compress/coder_files.cpp ${CMAKE_SOURCE_DIR}/compress/implode.cpp ${CMAKE_SOURCE_DIR}/compress/explode.cpp)
target_include_directories(store_package_fuzzer PRIVATE ${CMAKE_SOURCE_DIR})
target_compile_options(store_package_fuzzer PRIVATE ${ORVALIS_WARNINGS} -g -fsanitize=fuzzer,address,undefined
                       -fno-sanitize-recover=all)
target_link_options(store_package_fuzzer PRIVATE -fsanitize=fuzzer,address,undefined)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch-corpus/store_package_fuzzer)
add_test(NAME store_package_fuzzer
         COMMAND sh -c "rm -rf ${scratch} && mkdir -p ${scratch} && cp ${CMAKE_CURRENT_LIST_DIR}/corpus/package/* ${scratch}/ && \
$<TARGET_FILE:store_package_fuzzer> -max_total_time=20 -max_len=8192 -timeout=10 ${scratch}")
set_tests_properties(store_package_fuzzer PROPERTIES TIMEOUT 120)
