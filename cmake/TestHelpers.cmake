# orvane_test(NAME [BOARD] SOURCES ... LIBS ... [TIMEOUT seconds] [ARGS ...])
# One test program, run by ctest in namespaces of its own: loopback with multicast, its own /tmp and
# /dev/shm. Nothing it does reaches another interface or another test.
function(orvane_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;ARGS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE orvane_options ${T_LIBS} GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
  orvane_add_isolated_test(${name} COMMAND $<TARGET_FILE:${name}> ${T_ARGS} TIMEOUT ${T_TIMEOUT})
endfunction()

function(orvane_add_isolated_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "COMMAND" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tools/isolated ${T_COMMAND})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT} ENVIRONMENT
    "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1;UBSAN_OPTIONS=print_stacktrace=1;TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp:second_deadlock_stack=1:ignore_noninstrumented_modules=1;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp")
endfunction()
