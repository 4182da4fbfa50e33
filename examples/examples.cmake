# Programs that see of the library what an application sees: its public headers, in C++17.
function(orvane_example name)
  add_executable(${name} ${ARGN})
  set_target_properties(${name} PROPERTIES CXX_STANDARD 17)
  target_link_libraries(${name} PRIVATE orvane_options robotMotionSdk Threads::Threads)
endfunction()

orvane_example(minimal minimal.cpp)

orvane_example(walk_square
  walk_square/main.cpp
  walk_square/Console.cpp
  walk_square/Options.cpp
  walk_square/Robot.cpp
  walk_square/SquareWalk.cpp)
# For reading the robot's answers, which cross the library's boundary as JSON text.
target_link_libraries(walk_square PRIVATE PkgConfig::jsoncpp)

orvane_example(joint_loop
  joint_loop/main.cpp
  joint_loop/LoopStatistics.cpp)

orvane_example(joint_trace
  joint_trace/main.cpp
  joint_trace/Motion.cpp
  joint_trace/SvgPlot.cpp)

orvane_example(low_level_stand
  low_level_stand/main.cpp
  low_level_stand/Leg.cpp
  low_level_stand/Pilot.cpp)
