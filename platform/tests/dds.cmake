# Tests of the dds:: layer, of the DDS factory and of the typed readers.
idlc_generate(TARGET dds_test_idl FILES idl/DdsTest.idl)

# A peer in a process of its own, which a test can stop and kill.
add_executable(peer_program peer_program.cpp)
target_include_directories(peer_program PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
target_link_libraries(peer_program PRIVATE orvane_options platform::pdbus platform::dds platform::pbase
                                           dds_test_idl GTest::gmock)

function(platform_dds_test name)
  orvane_test(${name} SOURCES ${name}.cpp ${ARGN}
              LIBS platform::pdbus platform::dds platform::pbase dds_test_idl pdbus_idl)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/platform/pdbus/src)
  target_compile_definitions(${name} PRIVATE PEER_PROGRAM="$<TARGET_FILE:peer_program>")
  add_dependencies(${name} peer_program)
endfunction()

platform_dds_test(dds_layer_test)
platform_dds_test(pdbus_factory_test)
# The readers' sources once more: a failed rebind can only be had from a reader taken by itself.
set(pdbus_src ../pdbus/src)
platform_dds_test(pdbus_reader_test ${pdbus_src}/Reader.cpp ${pdbus_src}/ReaderDelivery.cpp
                  ${pdbus_src}/WriterSelection.cpp ${pdbus_src}/PeerMismatch.cpp
                  ${pdbus_src}/EndpointEntity.cpp)
