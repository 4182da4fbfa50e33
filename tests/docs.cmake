# Sanitizers aren't for documentation.
if(NOT ORVANE_SANITIZE)
  # The pages' code, as a reader would try it, and their links.
  orvane_add_isolated_test(documentation TIMEOUT 900 COMMAND
    ${CMAKE_CURRENT_SOURCE_DIR}/docs/check-docs ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}
    ${CMAKE_CURRENT_BINARY_DIR}/docs)
  set_tests_properties(documentation PROPERTIES PROCESSORS 2)  # several robots at once
  # Doxygen finds nothing to warn of.
  if(TARGET docs)
    file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/doxygen)
    add_test(NAME docs WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} COMMAND ${CMAKE_COMMAND} -E env
      DOCS_OUTPUT=${CMAKE_CURRENT_BINARY_DIR}/doxygen DOCS_VERSION=${PROJECT_VERSION}
      ${DOXYGEN_PROGRAM} docs/doxygen/Doxyfile)
    set_tests_properties(docs PROPERTIES TIMEOUT 300)
  endif()
endif()
