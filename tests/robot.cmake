orvane_test(robot_test
  SOURCES unit/robot_arbiter_test.cpp unit/robot_motion_test.cpp unit/robot_body_test.cpp
          unit/robot_requests_test.cpp unit/robot_faults_test.cpp
          unit/robot_lowlevel_test.cpp unit/robot_board_test.cpp unit/robot_media_test.cpp
          unit/robot_sim_test.cpp
  LIBS virtual_robot TIMEOUT 60)

orvane_test(robot_program_test
  SOURCES integration/robot_program_test.cpp
  LIBS sdk_test_support TIMEOUT 90)

if(ORVANE_HAS_PHYSICS)
  orvane_test(robot_physics_test SOURCES unit/robot_physics_test.cpp LIBS virtual_robot TIMEOUT 400
              PARTS 2)
endif()
if(ORVANE_HAS_PICTURES)
  pkg_check_modules(webp_reader REQUIRED IMPORTED_TARGET libpng libwebpdemux)
  orvane_test(robot_render_test SOURCES unit/robot_render_test.cpp LIBS sdk_test_support PkgConfig::webp_reader
              TIMEOUT 120)
  target_include_directories(robot_render_test PRIVATE integration)
endif()
