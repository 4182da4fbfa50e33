# Tests of the low-level client on simulated time, over real shared memory.

orvane_test(lowlevel_test
  SOURCES unit/lowlevel_session_test.cpp unit/lowlevel_commands_test.cpp
  LIBS sdk_unit scripted_pdbus)

# The simulation client and the real platform, with a scripted peer over DDS.
orvane_test(simulation_client_test SOURCES unit/simulation_client_test.cpp LIBS sdk_unit platform::pdbus)
