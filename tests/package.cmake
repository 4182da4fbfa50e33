# The Debian packages, made of what this preset built: packing a release costs a second build. Sanitizers
# aren't for packages.
if(NOT ORVANE_SANITIZE)
  orvane_add_isolated_test(packages TIMEOUT 300 COMMAND
    ${CMAKE_CURRENT_SOURCE_DIR}/package/check-packages ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/package)
endif()
