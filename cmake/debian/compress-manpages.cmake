# Run by CPack (CPACK_PRE_BUILD_SCRIPTS) on the staged files of the packages:
# Debian packages carry their manual pages compressed (gzip -9n, no name or
# time stamp inside, so the same page gives the same bytes). A plain
# `cmake --install` keeps them as written.
file(GLOB_RECURSE _ovra_staged LIST_DIRECTORIES false "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(_ovra_page IN LISTS _ovra_staged)
  if(_ovra_page MATCHES "/share/man/([a-z_A-Z@.]+/)?man[1-9n]/[^/]+\\.[1-9n][a-z]*$"
     AND NOT IS_SYMLINK "${_ovra_page}")
    execute_process(COMMAND gzip -9nf "${_ovra_page}" RESULT_VARIABLE _ovra_result)
    if(NOT _ovra_result EQUAL 0)
      message(FATAL_ERROR "cannot compress ${_ovra_page}")
    endif()
  endif()
endforeach()
