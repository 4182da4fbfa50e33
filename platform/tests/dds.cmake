# Tests of the dds:: layer, of the DDS factory and of the typed readers.
idlc_generate(TARGET dds_test_idl FILES idl/DdsTest.idl)

orvane_test(dds_layer_test SOURCES dds_layer_test.cpp LIBS platform::dds platform::pbase dds_test_idl)

orvane_test(pdbus_factory_test SOURCES pdbus_factory_test.cpp
            LIBS platform::pdbus platform::dds platform::pbase dds_test_idl)
target_include_directories(pdbus_factory_test PRIVATE ${PROJECT_SOURCE_DIR}/platform/pdbus/src)
# A peer in a process of its own, which the test can freeze.
add_executable(dds_frozen_peer dds_frozen_peer.cpp)
target_link_libraries(dds_frozen_peer PRIVATE orvane_options platform::dds platform::pbase dds_test_idl)
target_compile_definitions(pdbus_factory_test PRIVATE
                           DDS_FROZEN_PEER="$<TARGET_FILE:dds_frozen_peer>")
add_dependencies(pdbus_factory_test dds_frozen_peer)

# The readers' sources once more: a failed rebind can only be had from a reader taken by itself.
orvane_test(pdbus_reader_test SOURCES pdbus_reader_test.cpp ../pdbus/src/Reader.cpp
                                      ../pdbus/src/ReaderDelivery.cpp
                                      ../pdbus/src/WriterSelection.cpp
                                      ../pdbus/src/EndpointEntity.cpp
            LIBS platform::pdbus platform::dds platform::pbase dds_test_idl pdbus_idl)
target_include_directories(pdbus_reader_test PRIVATE ${PROJECT_SOURCE_DIR}/platform/pdbus/src)
