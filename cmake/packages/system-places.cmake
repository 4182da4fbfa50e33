# Run by CPack between installing and packing. Elsewhere what is installed finds the rest by its place; in the
# system's own directories nothing needs to.
set(trees ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr)

file(GLOB_RECURSE programs LIST_DIRECTORIES false ${trees}/lib/*.so.* ${trees}/bin/*)
foreach(file IN LISTS programs)
  if(NOT IS_SYMLINK ${file})
    file(RPATH_REMOVE FILE ${file})
  endif()
endforeach()

file(GLOB_RECURSE pkgconfig_files LIST_DIRECTORIES false ${trees}/lib/*.pc)
foreach(file IN LISTS pkgconfig_files)
  file(READ ${file} text)
  string(REGEX REPLACE "^prefix=[^\n]*" "prefix=/usr" text "${text}")
  file(WRITE ${file} "${text}")
endforeach()
