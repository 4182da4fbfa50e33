# The command-line tool: its rooms as a library, and the program itself against virtual robots.
function(orvane_robotctl_test name seconds)  # further arguments: of orvane_test
  orvane_test(${name} ${ARGN} SOURCES robotctl/${name}.cpp LIBS robotctl_rooms sdk_test_support
              TIMEOUT ${seconds})
  target_include_directories(${name} PRIVATE integration robotctl)
  target_compile_definitions(${name} PRIVATE ROBOTCTL="$<TARGET_FILE:robotctl>"
                             CHECKERS="${CMAKE_CURRENT_SOURCE_DIR}/robotctl")
  add_dependencies(${name} robotctl)
endfunction()

# The same for one that mostly waits: in so many shards at once, each in namespaces of its own.
function(orvane_robotctl_test_in_shards name shards seconds)  # further arguments: the program's
  add_executable(${name} robotctl/${name}.cpp)
  target_link_libraries(${name} PRIVATE orvane_options robotctl_rooms sdk_test_support GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support integration robotctl)
  target_compile_definitions(${name} PRIVATE ROBOTCTL="$<TARGET_FILE:robotctl>")
  add_dependencies(${name} robotctl)
  orvane_add_test(${name} ${seconds} ${CMAKE_CURRENT_SOURCE_DIR}/robotctl/in-shards ${shards}
                  ${PROJECT_SOURCE_DIR}/tools/isolated $<TARGET_FILE:${name}> ${ARGN})
endfunction()

# Recording and plotting
orvane_robotctl_test(record_test 300)
orvane_robotctl_test(plot_test 120)

# The simple subcommands
orvane_robotctl_test_in_shards(robotctl_test 9 300 --gtest_filter=-RobotctlOnBoard.*)
orvane_add_board_test(robotctl_board_test TIMEOUT 180
                      COMMAND $<TARGET_FILE:robotctl_test> --gtest_filter=RobotctlOnBoard.*)

# The doctor, on an external host, on a board and on a board without its daemon; and the virtual robot's starter.
orvane_robotctl_test_in_shards(doctor_test 8 200 --gtest_filter=-DoctorOnBoard.*:DoctorOnBareBoard.*)
orvane_add_board_test(doctor_board_test TIMEOUT 240
                      COMMAND $<TARGET_FILE:doctor_test> --gtest_filter=DoctorOnBoard.*)
orvane_add_board_test(doctor_bare_board_test TIMEOUT 120 OPTIONS --without-daemon
                      COMMAND $<TARGET_FILE:doctor_test> --gtest_filter=DoctorOnBareBoard.*)

# Watching and driving: pictures and keys by themselves, and the programs in tmux.
orvane_robotctl_test(terminal_test 60)
orvane_robotctl_test(screen_test 600)
target_sources(screen_test PRIVATE robotctl/terminal_window.cpp)
