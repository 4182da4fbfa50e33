# What is installed, where, and in which package it goes: one component is one Debian package
# (Packages.cmake). Included last, when all targets exist.

include(CMakePackageConfigHelpers)

set(documentation_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/robotmotionsdk-doc)

# --------------------------------------------------------------------------------------- libraries

# The libraries find each other, and the programs find them, wherever the prefix is.
set_target_properties(pbase pdbus robotMotionSdk PROPERTIES INSTALL_RPATH "$ORIGIN")

# Nobody compiles against the platform libraries through an installed SDK: on the robot's board they are
# the maker's.
install(TARGETS pbase LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT pbase NAMELINK_SKIP)
install(TARGETS pdbus LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT pdbus NAMELINK_SKIP)
install(TARGETS robotMotionSdk
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)

# ------------------------------------------------------------- what applications are built against

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

# orvane_way_to_prefix(RESULT DIRECTORY): the way from there to the prefix that it is below, "../.." and so on.
function(orvane_way_to_prefix result directory)
  file(RELATIVE_PATH way /prefix/${directory} /prefix)
  string(REGEX REPLACE "/$" "" way "${way}")
  set(${result} "${way}" PARENT_SCOPE)
endfunction()

get_target_property(sdk_number robotMotionSdk SOVERSION)
set(cmake_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/robotMotionSdk)
orvane_way_to_prefix(cmake_to_prefix ${cmake_package_dir})
configure_file(cmake/packages/robotMotionSdkConfig.cmake.in robotMotionSdkConfig.cmake @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/robotMotionSdkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/robotMotionSdkConfig.cmake
  ${PROJECT_BINARY_DIR}/robotMotionSdkConfigVersion.cmake
  DESTINATION ${cmake_package_dir} COMPONENT development)

set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
orvane_way_to_prefix(pkgconfig_to_prefix ${pkgconfig_dir})
configure_file(cmake/packages/robotMotionSdk.pc.in robotMotionSdk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/robotMotionSdk.pc DESTINATION ${pkgconfig_dir} COMPONENT development)

# -------------------------------------------------------------------------------------------- tools

# orvane_install_gzipped(COMPONENT SOURCE DESTINATION NAME [OPTIONS ...]): the file as DESTINATION/NAME.gz.
function(orvane_install_gzipped component source destination name)
  get_filename_component(source ${source} ABSOLUTE)
  set(zipped ${PROJECT_BINARY_DIR}/gzipped/${component}/${name}.gz)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/gzipped/${component})
  execute_process(COMMAND gzip -9 --no-name --stdout INPUT_FILE ${source} OUTPUT_FILE ${zipped}
    COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  install(FILES ${zipped} DESTINATION ${destination} COMPONENT ${component} ${ARGN})
endfunction()

set(tools virtual-robot robotctl)  # tools/robotctl installs its manual page and completions: the program makes them
# Every symbol is looked up at the start, so none is while a joint loop runs.
foreach(target pbase pdbus robotMotionSdk ${tools})
  target_link_options(${target} PRIVATE -Wl,-z,now)
endforeach()
set_target_properties(${tools} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS ${tools} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
orvane_install_gzipped(tools robot/virtual-robot.1 ${CMAKE_INSTALL_MANDIR}/man1 virtual-robot.1)

# ------------------------------------------------------------------------------------ documentation

install(FILES README.md CHANGELOG.md DESTINATION ${documentation_dir} COMPONENT documentation)
install(DIRECTORY docs/ DESTINATION ${documentation_dir}/docs COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png" PATTERN "*.gif" PATTERN "*.webp")
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html DESTINATION ${documentation_dir} COMPONENT documentation
  OPTIONAL)
# Without what only this tree can use; the list of targets is one for the installed library.
install(DIRECTORY examples/ DESTINATION ${documentation_dir}/examples COMPONENT documentation
  FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h")
install(FILES cmake/packages/examples.cmake RENAME CMakeLists.txt
  DESTINATION ${documentation_dir}/examples COMPONENT documentation)

add_custom_target(installed DEPENDS robotMotionSdk ${tools} COMMENT "All that is installed")
if(TARGET docs)  # where Doxygen is installed
  add_dependencies(installed docs)
endif()
