# The examples, against the installed library. In a copy of this directory, or from anywhere:
#   cmake -S . -B build && cmake --build build
cmake_minimum_required(VERSION 3.16)
project(robotMotionSdkExamples LANGUAGES CXX)

find_package(robotMotionSdk 1.0 REQUIRED)
find_package(Threads REQUIRED)

function(example name)
  file(GLOB sources ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE robotMotionSdk::robotMotionSdk Threads::Threads)
endfunction()

example(minimal)
example(joint_loop)
example(joint_trace)
example(low_level_stand)

# walk_square reads the robot's answers, which are JSON text, with jsoncpp.
find_package(PkgConfig)
if(PkgConfig_FOUND)
  pkg_check_modules(jsoncpp IMPORTED_TARGET jsoncpp)
endif()
if(jsoncpp_FOUND)
  example(walk_square)
  target_link_libraries(walk_square PRIVATE PkgConfig::jsoncpp)
else()
  message(STATUS "walk_square is left out: it needs pkg-config and libjsoncpp-dev")
endif()
