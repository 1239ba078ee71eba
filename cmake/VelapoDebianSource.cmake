# Sources that Debian ships only as Linux libraries, for the Windows cross
# build to compile itself. Nothing of them is committed: each is Debian's
# source package, fetched once per build tree.

# velapo_debian_source(<source-package> <out-var>)
# Unpacks the source package under the build tree with
# scripts/fetch-debian-source.sh, unless an earlier configure did, and sets
# <out-var> to the unpacked tree.
function(velapo_debian_source package out_var)
  set(dest ${CMAKE_BINARY_DIR}/debian-source)
  if(NOT EXISTS ${dest}/${package}.version)
    execute_process(
      COMMAND ${PROJECT_SOURCE_DIR}/scripts/fetch-debian-source.sh ${package} ${dest}
      RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
      message(FATAL_ERROR "Could not fetch Debian's source package '${package}' "
                          "(scripts/fetch-debian-source.sh ${package} ${dest})")
    endif()
  endif()
  set(${out_var} ${dest}/${package} PARENT_SCOPE)
endfunction()
