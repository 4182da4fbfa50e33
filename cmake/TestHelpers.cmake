# orvane_test(NAME [BOARD [OPTIONS ...]] SOURCES ... LIBS ... [TIMEOUT seconds] [ARGS ...] [PARTS n])
# One test program, run by ctest in namespaces of its own: loopback with multicast, its own /tmp and
# /dev/shm. Nothing it does reaches another interface or another test. With BOARD it finds itself on the
# robot board (tools/board-sandbox, OPTIONS are the sandbox's). With PARTS ctest has it as NAME_1 to NAME_n, each
# with its share of the cases, so that one that computes for long has every core.
function(orvane_test name)
  cmake_parse_arguments(T "BOARD" "TIMEOUT;PARTS" "SOURCES;LIBS;ARGS;OPTIONS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE orvane_options ${T_LIBS} GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
  set(command COMMAND $<TARGET_FILE:${name}> ${T_ARGS} TIMEOUT ${T_TIMEOUT})
  if(T_BOARD)
    orvane_add_board_test(${name} OPTIONS ${T_OPTIONS} ${command})
  elseif(T_PARTS)
    foreach(part RANGE 1 ${T_PARTS})
      math(EXPR index "${part} - 1")
      orvane_add_isolated_test(${name}_${part} TIMEOUT ${T_TIMEOUT} COMMAND
        env GTEST_TOTAL_SHARDS=${T_PARTS} GTEST_SHARD_INDEX=${index} $<TARGET_FILE:${name}> ${T_ARGS})
    endforeach()
  else()
    orvane_add_isolated_test(${name} ${command})
  endif()
endfunction()

function(orvane_add_isolated_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "COMMAND" ${ARGN})
  orvane_add_test(${name} "${T_TIMEOUT}" ${PROJECT_SOURCE_DIR}/tools/isolated ${T_COMMAND})
endfunction()

function(orvane_add_board_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "OPTIONS;COMMAND" ${ARGN})
  orvane_add_test(${name} "${T_TIMEOUT}" ${PROJECT_SOURCE_DIR}/tools/board-sandbox --alone ${T_OPTIONS}
    -- ${T_COMMAND})
endfunction()

function(orvane_add_test name seconds)  # further arguments: the command
  if(NOT seconds)
    set(seconds 120)
  endif()
  add_test(NAME ${name} COMMAND ${ARGN})
  # What may take longest begins first, so that no long one is left alone at the end.
  set_tests_properties(${name} PROPERTIES TIMEOUT ${seconds} COST ${seconds} ENVIRONMENT
    "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1;UBSAN_OPTIONS=print_stacktrace=1;TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp:second_deadlock_stack=1:ignore_noninstrumented_modules=1;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp")
endfunction()
