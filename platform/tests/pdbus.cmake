# Tests of the RPC and the event bus. The scripted peers speak the wire types themselves.
orvane_test(pdbus_rpc_test SOURCES pdbus_rpc_test.cpp
            LIBS platform::pdbus platform::dds platform::pbase dds_test_idl pdbus_idl)
orvane_test(pdbus_eventbus_test SOURCES pdbus_eventbus_test.cpp
            LIBS platform::pdbus platform::dds platform::pbase dds_test_idl pdbus_idl)
