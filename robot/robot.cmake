# The virtual robot: a library that tests start in process, and the program around it.
file(GLOB robot_sources CONFIGURE_DEPENDS *.cpp arbiter/*.cpp body/*.cpp faults/*.cpp gamepad/*.cpp locomotion/*.cpp media/*.cpp motion/*.cpp
     publish/*.cpp servers/*.cpp session/*.cpp sides/*.cpp sim/*.cpp)
list(REMOVE_ITEM robot_sources ${CMAKE_CURRENT_SOURCE_DIR}/main.cpp)
add_library(virtual_robot STATIC ${robot_sources})
target_include_directories(virtual_robot PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}
                           ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(virtual_robot PUBLIC platform::pdbus platform::pbase motion_msg motion_shm PkgConfig::jsoncpp
                      PRIVATE orvane_options)

# The body with physics needs Debian's libmujoco-dev, whose CMake package names a directory that it doesn't
# need and doesn't have. Without it everything else is built.
set(ORVANE_WITH_PHYSICS AUTO CACHE STRING "A virtual robot with a body with physics: AUTO (where there is MuJoCo 2), ON, OFF")
set_property(CACHE ORVANE_WITH_PHYSICS PROPERTY STRINGS AUTO ON OFF)
find_path(MUJOCO_INCLUDE_DIR mujoco/mujoco.h)
find_library(MUJOCO_LIBRARY mujoco)
set(mujoco_missing)
if(NOT ORVANE_WITH_PHYSICS)
  set(mujoco_missing "ORVANE_WITH_PHYSICS is ${ORVANE_WITH_PHYSICS}")
elseif(NOT MUJOCO_INCLUDE_DIR OR NOT MUJOCO_LIBRARY)
  set(mujoco_missing "MuJoCo is missing (header: ${MUJOCO_INCLUDE_DIR}, library: ${MUJOCO_LIBRARY})")
else()
  file(STRINGS ${MUJOCO_INCLUDE_DIR}/mujoco/mujoco.h mujoco_version REGEX "#define mjVERSION_HEADER 2[0-9][0-9]$")
  if(NOT mujoco_version)
    set(mujoco_missing "${MUJOCO_INCLUDE_DIR} has another MuJoCo than version 2")
  endif()
endif()
if(NOT mujoco_missing)
  set(ORVANE_HAS_PHYSICS ON CACHE INTERNAL "The virtual robot has a body with physics")
  file(GLOB physics_sources CONFIGURE_DEPENDS physics/*.cpp)
  target_compile_definitions(virtual_robot PUBLIC ORVANE_WITH_PHYSICS)
  target_include_directories(virtual_robot SYSTEM PRIVATE ${MUJOCO_INCLUDE_DIR})
  target_link_libraries(virtual_robot PRIVATE ${MUJOCO_LIBRARY})

  # Pictures of it. Of Mesa only the header is needed here: who renders loads its library.
  find_path(OSMESA_INCLUDE_DIR GL/osmesa.h)
  pkg_check_modules(picture_files QUIET IMPORTED_TARGET libpng libwebp libwebpmux)
  if(OSMESA_INCLUDE_DIR AND picture_files_FOUND)
    set(ORVANE_HAS_PICTURES ON CACHE INTERNAL "The virtual robot can be rendered")
    target_compile_definitions(virtual_robot PRIVATE ORVANE_WITH_PICTURES)
    target_include_directories(virtual_robot SYSTEM PRIVATE ${OSMESA_INCLUDE_DIR})
    target_link_libraries(virtual_robot PRIVATE PkgConfig::picture_files ${CMAKE_DL_LIBS})
  else()
    set(ORVANE_HAS_PICTURES OFF CACHE INTERNAL "The virtual robot can be rendered")
    list(FILTER physics_sources EXCLUDE REGEX "/Render[A-Za-z]*\\.cpp$")
    message(STATUS "Not all of libosmesa6-dev, libpng-dev, libwebp-dev: virtual-robot has no --render")
  endif()
  target_sources(virtual_robot PRIVATE ${physics_sources})
else()
  set(ORVANE_HAS_PICTURES OFF CACHE INTERNAL "The virtual robot can be rendered")
  set(ORVANE_HAS_PHYSICS OFF CACHE INTERNAL "The virtual robot has a body with physics")
  set(severity NOTICE)
  if(ORVANE_WITH_PHYSICS AND NOT ORVANE_WITH_PHYSICS STREQUAL "AUTO")
    set(severity FATAL_ERROR)
  endif()
  message(${severity} "-- No body with physics: ${mujoco_missing}.
   The virtual robot's body is kinematic (virtual-robot --body kinematic), and tests on physics are left out.
   For one that has weight: tools/install-dependencies or apt-get install libmujoco-dev, and ORVANE_WITH_PHYSICS
   AUTO or ON; then configure again.")
endif()

file(GLOB robot_app_sources CONFIGURE_DEPENDS main.cpp app/*.cpp)
add_executable(virtual-robot ${robot_app_sources})
target_link_libraries(virtual-robot PRIVATE orvane_options virtual_robot CLI11::CLI11)
