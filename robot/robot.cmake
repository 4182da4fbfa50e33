# The virtual robot: a library that tests start in process, and the program around it.
file(GLOB robot_sources CONFIGURE_DEPENDS *.cpp arbiter/*.cpp body/*.cpp faults/*.cpp gamepad/*.cpp media/*.cpp motion/*.cpp
     publish/*.cpp servers/*.cpp session/*.cpp sides/*.cpp sim/*.cpp)
list(REMOVE_ITEM robot_sources ${CMAKE_CURRENT_SOURCE_DIR}/main.cpp)
add_library(virtual_robot STATIC ${robot_sources})
target_include_directories(virtual_robot PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}
                           ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(virtual_robot PUBLIC platform::pdbus platform::pbase motion_msg motion_shm PkgConfig::jsoncpp
                      PRIVATE orvane_options)

file(GLOB robot_app_sources CONFIGURE_DEPENDS main.cpp app/*.cpp)
add_executable(virtual-robot ${robot_app_sources})
target_link_libraries(virtual-robot PRIVATE orvane_options virtual_robot CLI11::CLI11)
