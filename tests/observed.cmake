# Tests of the message types and of the observed state.

orvane_test(msg_test SOURCES unit/msg_type_support_test.cpp LIBS motion_msg)

# The other side of the interoperability test: libddsc and the IDL, nothing of the project.
idlc_generate(TARGET plain_peer_idl FILES ${PROJECT_SOURCE_DIR}/src/msg/Motion.idl)
add_executable(plain_peer interop/plain_peer.c)
target_link_libraries(plain_peer PRIVATE plain_peer_idl CycloneDDS::ddsc)

orvane_test(msg_interop_test SOURCES unit/msg_interop_test.cpp LIBS motion_msg TIMEOUT 90)
target_compile_definitions(msg_interop_test PRIVATE PLAIN_PEER="$<TARGET_FILE:plain_peer>")
add_dependencies(msg_interop_test plain_peer)

orvane_test(observed_test
  SOURCES unit/observed_records_test.cpp unit/observed_source_test.cpp unit/observed_local_test.cpp
  LIBS sdk_unit scripted_pdbus)

orvane_test(shm_channels_test SOURCES unit/shm_channels_test.cpp LIBS motion_shm)
