# Tests of the byte buffer and of the datagram sockets.

orvane_test(net_test
  SOURCES unit/net_buffer_test.cpp unit/net_address_test.cpp unit/net_datagram_test.cpp
  LIBS motion_net)

# Two network namespaces and a link between them; skipped, with the reason, where it can't be made.
orvane_test(net_link_test SOURCES unit/net_link_test.cpp LIBS motion_net)
set_tests_properties(net_link_test PROPERTIES SKIP_REGULAR_EXPRESSION "SKIPPED")

# The example of the documentation, as it stands there.
set(datagrams_page ${PROJECT_SOURCE_DIR}/docs/datagrams.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${datagrams_page})
file(READ ${datagrams_page} page)
string(REGEX MATCH "```cpp\n(.*)\n```" found "${page}")
file(CONFIGURE OUTPUT datagrams_example.cpp CONTENT "${CMAKE_MATCH_1}\n" @ONLY)
add_executable(datagrams_example ${CMAKE_CURRENT_BINARY_DIR}/datagrams_example.cpp)
target_link_libraries(datagrams_example PRIVATE orvane_options motion_net)
orvane_add_isolated_test(datagrams_example COMMAND $<TARGET_FILE:datagrams_example>)
