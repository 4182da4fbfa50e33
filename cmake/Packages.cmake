# Debian packages: `make package`, or cpack in a build directory. One component (Install.cmake) is one
# package; docs/packages.md tells what is in which.

set(ORVANE_PACKAGE_CONTACT "Robot motion SDK maintainers <maintainers@orvane.example>" CACHE STRING
  "Maintainer that the packages name")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME robotmotionsdk)
set(CPACK_PACKAGE_CONTACT "${ORVANE_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VENDOR "Robot motion SDK")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/packages/system-places.cmake)

set(CPACK_COMPONENTS_ALL pbase pdbus library development tools documentation)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Of the libraries that aren't ours. Ours are in no package yet when this looks, and are named below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform/pbase
  ${PROJECT_BINARY_DIR}/platform/pdbus ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# ------------------------------------------------------------------------------------ the packages

# The date of a release stands in CHANGELOG.md; without an entry for its version nothing is packaged.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
file(STRINGS CHANGELOG.md release_heading REGEX "^## ${PROJECT_VERSION} \\([0-9]+-[0-9]+-[0-9]+\\)$")
if(NOT release_heading)
  message(FATAL_ERROR "CHANGELOG.md has no heading \"## ${PROJECT_VERSION} (year-month-day)\"")
endif()
string(REGEX REPLACE ".*\\((.*)\\)" "\\1" release_date "${release_heading}")
execute_process(COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C date --utc --rfc-email --date ${release_date}
  OUTPUT_VARIABLE release_date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

# orvane_package(COMPONENT PACKAGE SECTION SUMMARY DESCRIPTION [DEPENDS ...] [LIBRARY soname] [PROGRAMS])
# LIBRARY: it holds the shared library of that name, which others link; PROGRAMS: other ELF files.
macro(orvane_package component package section summary description)
  cmake_parse_arguments(P "PROGRAMS" "LIBRARY" "DEPENDS" ${ARGN})
  string(TOUPPER ${component} upper)
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${description}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  string(REPLACE ";" ", " CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${P_DEPENDS}")
  if(P_LIBRARY OR P_PROGRAMS)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON)
  endif()

  set(package_name ${package})
  set(package_dir ${PROJECT_BINARY_DIR}/packaging/${package})
  set(doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
  configure_file(cmake/packages/changelog.in ${package_dir}/changelog @ONLY)
  # Debian's own files: not for an installation by hand.
  install(FILES cmake/packages/copyright DESTINATION ${doc_dir} COMPONENT ${component} EXCLUDE_FROM_ALL)
  orvane_install_gzipped(${component} CHANGELOG.md ${doc_dir} changelog EXCLUDE_FROM_ALL)
  orvane_install_gzipped(${component} ${package_dir}/changelog ${doc_dir} changelog.Debian EXCLUDE_FROM_ALL)

  if(P_LIBRARY)
    set(library_name ${P_LIBRARY})
    configure_file(cmake/packages/preinst.in ${package_dir}/preinst @ONLY)
    # CPack writes scripts that call ldconfig, which the trigger does, unless scripts of these names are
    # given. It warns that they don't exist, and packs none.
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/packages/triggers
      ${package_dir}/preinst ${package_dir}/none/postinst ${package_dir}/none/postrm)
  endif()
endmacro()

set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(same_interface "(>= ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})")
get_target_property(pbase_number pbase SOVERSION)
get_target_property(pdbus_number pdbus SOVERSION)
set(needs_pbase "libpbase${pbase_number} ${same_interface}")
set(needs_pdbus "libpdbus${pdbus_number} ${same_interface}")

orvane_package(pbase libpbase${pbase_number} libs
  "Platform library of the robot motion SDK: threads, time, shared memory"
  "Clock, threads, log, configuration, JSON text and shared memory.
On the robot's own board the maker's library of the same name takes its place."
  LIBRARY libpbase.so.${pbase_number})
orvane_package(pdbus libpdbus${pdbus_number} libs
  "Platform library of the robot motion SDK: requests and events over DDS"
  "RPC, events and typed topics over DDS.
On the robot's own board the maker's library of the same name takes its place."
  LIBRARY libpdbus.so.${pdbus_number}
  DEPENDS ${needs_pbase})
orvane_package(library librobotmotionsdk${sdk_number} libs
  "Motion SDK for a four-legged robot"
  "Finds a robot on the network, takes control of it under a lease, has it stand,
walk and lie down, moves its joints, and watches them together with the
inertial unit, battery and odometry."
  LIBRARY librobotMotionSdk.so.${sdk_number}
  DEPENDS ${needs_pbase} ${needs_pdbus})
orvane_package(development librobotmotionsdk-dev libdevel
  "Motion SDK for a four-legged robot: headers"
  "What applications are built against: headers (C++17, standard library only),
CMake package robotMotionSdk, pkg-config file."
  DEPENDS "librobotmotionsdk${sdk_number} ${same_version}")
orvane_package(tools robotmotionsdk-tools utils
  "Motion SDK for a four-legged robot: virtual robot and command-line tool"
  "A virtual robot, which serves on DDS what a real one serves, and programs to
find, watch and move robots from a terminal."
  PROGRAMS
  DEPENDS ${needs_pbase} ${needs_pdbus} "librobotmotionsdk${sdk_number} ${same_interface}")
orvane_package(documentation robotmotionsdk-doc doc
  "Motion SDK for a four-legged robot: documentation and examples"
  "Pages on concepts, interfaces, protocols, error codes and the programs, and the
sources of the examples, which build against the installed library.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
if(ORVANE_HAS_PICTURES)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS libosmesa6)  # virtual-robot --render loads it when it is asked for
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "robotmotionsdk-doc, robotmotionsdk-tools")

include(CPack)
