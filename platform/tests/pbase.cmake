foreach(area clock thread backoff logger text shm_buffer)
  orvane_test(pbase_${area}_test SOURCES pbase_${area}_test.cpp LIBS platform::pbase)
endforeach()
set(shm_reader Attachment.cpp Segment.cpp ShmFile.cpp ShmMapping.cpp)
# The reader's half once more: a reader that claims nothing can only be had from it by itself.
list(TRANSFORM shm_reader PREPEND ../pbase/src/shm/)
orvane_test(pbase_shm_domain_test SOURCES pbase_shm_domain_test.cpp ${shm_reader}
            LIBS platform::pbase)
target_include_directories(pbase_shm_domain_test PRIVATE ${PROJECT_SOURCE_DIR}/platform/pbase/src)
target_compile_definitions(pbase_shm_domain_test PRIVATE
                           PEER_PROGRAM="$<TARGET_FILE:pbase_shm_domain_test>")
