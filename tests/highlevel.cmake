# The scripted platform bus, and the tests of the high-level client on simulated time.

add_subdirectory(support/scripted)

orvane_test(highlevel_test
  SOURCES unit/highlevel_lease_test.cpp unit/highlevel_connection_test.cpp
          unit/highlevel_requests_test.cpp unit/highlevel_operations_test.cpp
  LIBS sdk_unit scripted_pdbus)
