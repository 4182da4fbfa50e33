# Tests of the RPC and the event bus. The scripted peers speak the wire types themselves.
foreach(area rpc rpc_wire eventbus)
  platform_dds_test(pdbus_${area}_test)
endforeach()
platform_dds_test(pdbus_faults_test TIMEOUT 300)
