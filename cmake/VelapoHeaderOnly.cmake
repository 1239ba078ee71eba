# Header-only libraries from Debian's packages (CLI11, nlohmann-json) for the
# tools. Natively they are in /usr/include already. The Windows cross build
# must not search /usr/include (glibc's headers are there), so it gets a
# directory of links to just these libraries' folders.
function(velapo_use_header_only target)
  if(NOT CMAKE_CROSSCOMPILING)
    return()
  endif()
  set(dir ${CMAKE_BINARY_DIR}/header-only)
  foreach(folder CLI nlohmann)
    if(NOT EXISTS /usr/include/${folder})
      message(FATAL_ERROR "/usr/include/${folder} is missing: run scripts/setup.sh")
    endif()
    if(NOT EXISTS ${dir}/${folder})
      file(MAKE_DIRECTORY ${dir})
      file(CREATE_LINK /usr/include/${folder} ${dir}/${folder} SYMBOLIC)
    endif()
  endforeach()
  target_include_directories(${target} SYSTEM PUBLIC ${dir})
endfunction()
