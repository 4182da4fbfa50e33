# The real library over real DDS, with virtual robots in the test's process and in processes of their own.
add_library(sdk_test_support STATIC integration/sdk_support.cpp integration/sdk_process.cpp)
target_include_directories(sdk_test_support PUBLIC support)
target_link_libraries(sdk_test_support
  PUBLIC robotMotionSdk virtual_robot platform::pbase PkgConfig::jsoncpp PRIVATE orvane_options)

add_executable(sdk_client integration/programs/sdk_client.cpp)
target_include_directories(sdk_client PRIVATE integration)
target_link_libraries(sdk_client PRIVATE orvane_options robotMotionSdk Threads::Threads)

set(sdk_test_programs sdk_client virtual-robot minimal walk_square joint_trace
  low_level_stand)
add_dependencies(sdk_test_support ${sdk_test_programs})
foreach(program ${sdk_test_programs})
  string(TOUPPER ${program} macro)
  string(REPLACE "-" "_" macro ${macro})
  target_compile_definitions(sdk_test_support PUBLIC ${macro}="$<TARGET_FILE:${program}>")
endforeach()

function(orvane_sdk_test name seconds)  # BOARD: on the robot board
  orvane_test(${name} ${ARGN} SOURCES integration/${name}.cpp LIBS sdk_test_support TIMEOUT ${seconds})
endfunction()

orvane_sdk_test(sdk_discovery_test 120)
orvane_sdk_test(sdk_control_test 300)
orvane_sdk_test(sdk_callback_test 300)
orvane_sdk_test(sdk_process_test 300)
# Judges by the clock how soon a robot stops, and has a hundred clients: it needs the machine.
set_tests_properties(sdk_process_test PROPERTIES RUN_SERIAL ON)
orvane_sdk_test(sdk_robot_fault_test 300)
orvane_sdk_test(sdk_endurance_test 400)
orvane_sdk_test(sdk_board_test 300 BOARD)
orvane_sdk_test(sdk_lowlevel_test 300 BOARD)
orvane_sdk_test(sdk_examples_test 300)
orvane_sdk_test(sdk_media_test 120)
orvane_sdk_test(sdk_simulation_test 300)
orvane_add_board_test(sdk_media_board_test COMMAND $<TARGET_FILE:sdk_media_test> --gtest_filter=Media.*
                      TIMEOUT 120)

add_test(NAME check_format COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/check-format)
