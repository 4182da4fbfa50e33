# Tests of the service, of the public interfaces and of what the library exports.

orvane_test(service_test
  SOURCES unit/service_host_test.cpp unit/service_discovery_test.cpp unit/service_layout_test.cpp
          unit/service_gate_test.cpp unit/service_exit_test.cpp
  LIBS sdk_unit scripted_pdbus)

# The robot board's branch: one program, run where the board's files are at their real paths.
add_executable(service_board_test unit/service_board_test.cpp)
target_link_libraries(service_board_test PRIVATE orvane_options sdk_unit scripted_pdbus GTest::gmock
                      GTest::gtest_main)
function(service_on_board name filter)  # further arguments: options of the sandbox
  orvane_add_board_test(${name} OPTIONS --without-daemon ${ARGN}
    COMMAND $<TARGET_FILE:service_board_test> --gtest_filter=${filter})
endfunction()
service_on_board(service_board ServiceOnBoard.* --marker)
service_on_board(service_board_without_marker ServiceWithoutMarker.*)
service_on_board(service_board_other_version ServiceBesideABoard.* --marker --version
                 "RELEASE_DEVELOPMENT_ROBOTIC_1")
service_on_board(service_board_no_version ServiceBesideABoard.* --marker --without-version)
service_on_board(service_board_no_config ServiceBesideABoard.* --marker --without-motion-config)

orvane_add_test(board_sandbox 120
  ${CMAKE_CURRENT_SOURCE_DIR}/check-board-sandbox ${CMAKE_CURRENT_BINARY_DIR}/board-sandbox)

# Built as an application is: against the shared library, with the language level of its headers.
orvane_test(abi_slots_test SOURCES unit/abi_slots_test.cpp LIBS robotMotionSdk)
set_target_properties(abi_slots_test PROPERTIES CXX_STANDARD 17)

add_test(NAME exported_symbols
  COMMAND ${PROJECT_SOURCE_DIR}/tests/check-exports $<TARGET_FILE:robotMotionSdk>)
