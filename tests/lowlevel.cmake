# Tests of the low-level client on simulated time, over real shared memory.

orvane_test(lowlevel_test
  SOURCES unit/lowlevel_session_test.cpp unit/lowlevel_commands_test.cpp
  LIBS sdk_unit scripted_pdbus)
