# tinyxml2, the parser of the configuration file, as the target
# velapo_tinyxml2. Natively it is Debian's libtinyxml2-dev. The Windows cross
# build compiles it from Debian's source package, fetched into the build tree
# at configure time by scripts/fetch-debian-source.sh and never committed.
# Fuzz and sanitizer builds do the same, so that libFuzzer sees the parser's
# branches and ASan and TSan see its memory accesses: the configuration's
# document cache is walked by several threads at once.
if(TARGET velapo_tinyxml2)
  return()
endif()

if((CMAKE_CROSSCOMPILING AND WIN32) OR VELAPO_BUILD_FUZZ OR VELAPO_SANITIZE)
  include(VelapoDebianSource)
  velapo_debian_source(tinyxml2 _velapo_tinyxml2_dir)
  if(NOT EXISTS ${_velapo_tinyxml2_dir}/tinyxml2.cpp)
    message(FATAL_ERROR "No tinyxml2.cpp in ${_velapo_tinyxml2_dir}")
  endif()
  # Built with the project's options (sanitizers, fuzzer instrumentation)
  # but none of its warnings: it is someone else's code, and its header is
  # a system header to us.
  add_library(velapo_tinyxml2 STATIC ${_velapo_tinyxml2_dir}/tinyxml2.cpp)
  target_link_libraries(velapo_tinyxml2 PRIVATE velapo_options)
  target_include_directories(velapo_tinyxml2 SYSTEM PUBLIC ${_velapo_tinyxml2_dir})
  target_compile_options(velapo_tinyxml2 PRIVATE -w)
else()
  find_package(tinyxml2 CONFIG REQUIRED)
  add_library(velapo_tinyxml2 INTERFACE)
  target_link_libraries(velapo_tinyxml2 INTERFACE tinyxml2::tinyxml2)
endif()
