# Language level, warnings, sanitizers and packages for every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

find_program(ORVANE_CCACHE ccache)
if(ORVANE_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${ORVANE_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ORVANE_CCACHE})
endif()

set(ORVANE_SANITIZE "" CACHE STRING "Sanitizers to build everything with, e.g. address,undefined")
if(ORVANE_SANITIZE)
  add_compile_options(-fsanitize=${ORVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
                      -O1 -g1)
  add_link_options(-fsanitize=${ORVANE_SANITIZE})
endif()

add_library(orvane_options INTERFACE)
target_compile_options(orvane_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor
    -Woverloaded-virtual -Wimplicit-fallthrough -Wformat=2>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Of the functions that pass a checked format on, only clang warns.
  target_compile_options(orvane_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-format-nonliteral>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # At -O3 this compiler sees overlaps and overruns inside the standard library's strings and vectors that
  # aren't there. The preset dev, at -O2, checks these.
  target_compile_options(orvane_options INTERFACE
    $<$<AND:$<CONFIG:Release>,$<COMPILE_LANGUAGE:CXX>>:-Wno-restrict -Wno-array-bounds
      -Wno-stringop-overflow>)
endif()
if(ORVANE_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Instrumentation hides from GCC that a value was set; the plain presets check this one.
  target_compile_options(orvane_options INTERFACE -Wno-error=maybe-uninitialized)
endif()
if(ORVANE_SANITIZE STREQUAL "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Likewise: GCC's thread sanitizer doesn't model fences.
  target_compile_options(orvane_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-error=tsan>)
endif()

find_package(CycloneDDS REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_package(RapidJSON REQUIRED)
find_package(GTest REQUIRED)
pkg_check_modules(jsoncpp REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(uuid REQUIRED IMPORTED_TARGET uuid)
