# Tests of the service, of the public interfaces and of what the library exports.

orvane_test(service_test
  SOURCES unit/service_host_test.cpp unit/service_discovery_test.cpp unit/service_layout_test.cpp
          unit/service_gate_test.cpp unit/service_exit_test.cpp
  LIBS sdk_unit scripted_pdbus)

# The robot board's branch: one program, run where the board's files are at their real paths.
add_executable(service_board_test unit/service_board_test.cpp)
target_link_libraries(service_board_test PRIVATE orvane_options sdk_unit scripted_pdbus GTest::gmock
                      GTest::gtest_main)
get_property(test_environment TEST service_test PROPERTY ENVIRONMENT)
function(orvane_board_test name filter)  # further arguments: options of the sandbox
  add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/tests/support/board-sandbox ${ARGN} --
    $<TARGET_FILE:service_board_test> --gtest_filter=${filter})
  set_tests_properties(${name} PROPERTIES TIMEOUT 120 ENVIRONMENT "${test_environment}")
endfunction()
orvane_board_test(service_board ServiceOnBoard.* --marker)
orvane_board_test(service_board_without_marker ServiceWithoutMarker.*)
orvane_board_test(service_board_other_version ServiceBesideABoard.* --marker --version
                  "RELEASE_DEVELOPMENT_ROBOTIC_1")
orvane_board_test(service_board_no_version ServiceBesideABoard.* --marker --version "")
orvane_board_test(service_board_no_config ServiceBesideABoard.* --marker --without-motion-config)

# Built as an application is: against the shared library, with the language level of its headers.
orvane_test(abi_slots_test SOURCES unit/abi_slots_test.cpp LIBS robotMotionSdk)
set_target_properties(abi_slots_test PROPERTIES CXX_STANDARD 17)

add_test(NAME exported_symbols
  COMMAND ${PROJECT_SOURCE_DIR}/tests/check-exports $<TARGET_FILE:robotMotionSdk>)
