# Test executables: one per area. Natively each GoogleTest case becomes a CTest
# test; in the Windows cross build each executable is one CTest test run under
# Wine, since listing the cases through Wine costs a Wine start per executable
# at build time.

if(CMAKE_CROSSCOMPILING)
  # Debian ships GoogleTest's sources; build them with the cross compiler.
  set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  if(NOT TARGET GTest::gtest_main)
    add_library(GTest::gtest ALIAS gtest)
    add_library(GTest::gtest_main ALIAS gtest_main)
    add_library(GTest::gmock ALIAS gmock)
  endif()
else()
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

# velapo_add_test(<name> SOURCES <files...> [DEPS <targets...>] [NO_WINE]
#                 [RESOURCE_LOCK <resource>])
# RESOURCE_LOCK keeps the executable's cases from running beside other tests
# that name the same resource, such as the machine-wide capture mutex.
function(velapo_add_test name)
  cmake_parse_arguments(ARG "NO_WINE" "RESOURCE_LOCK" "SOURCES;DEPS" ${ARGN})
  if(CMAKE_CROSSCOMPILING AND ARG_NO_WINE)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velapo_options ${ARG_DEPS} GTest::gtest_main GTest::gmock)
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    if(ARG_RESOURCE_LOCK)
      set_tests_properties(${name} PROPERTIES RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
    endif()
  elseif(ARG_RESOURCE_LOCK)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
  else()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
  endif()
endfunction()
