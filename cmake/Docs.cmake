# The target docs: pages and public headers as HTML in PROJECT_BINARY_DIR/docs/html. Without Doxygen there is none.
find_program(DOXYGEN_PROGRAM doxygen)
find_program(PYTHON_PROGRAM python3)
find_program(DOT_PROGRAM dot)
if(DOXYGEN_PROGRAM AND PYTHON_PROGRAM AND DOT_PROGRAM)
  file(GLOB_RECURSE docs_sources CONFIGURE_DEPENDS docs/*.md docs/images/* docs/doxygen/* include/*.h)
  set(docs_done ${PROJECT_BINARY_DIR}/docs/done)
  add_custom_command(OUTPUT ${docs_done} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${PROJECT_BINARY_DIR}/docs
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/docs
    COMMAND ${CMAKE_COMMAND} -E env DOCS_OUTPUT=${PROJECT_BINARY_DIR}/docs DOCS_VERSION=${PROJECT_VERSION}
            ${DOXYGEN_PROGRAM} docs/doxygen/Doxyfile
    COMMAND ${CMAKE_COMMAND} -E touch ${docs_done}
    DEPENDS ${docs_sources} README.md CHANGELOG.md
    COMMENT "HTML of pages and public headers")
  add_custom_target(docs DEPENDS ${docs_done})
endif()
