# Build options shared by every target of the project, and the helper that
# declares one library per source folder.

add_library(velapo_options INTERFACE)
target_compile_features(velapo_options INTERFACE cxx_std_20)
target_include_directories(velapo_options INTERFACE
  ${PROJECT_SOURCE_DIR}/src
  ${PROJECT_SOURCE_DIR}/include)

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(velapo_options INTERFACE
    -Wall -Wextra -Wshadow -Wcast-align -Wformat=2 -Wimplicit-fallthrough
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
    # Mixing results are pinned bit for bit, and the Windows and Linux builds
    # must agree: never fuse a multiply and an add behind the code's back.
    -ffp-contract=off)
  if(VELAPO_WERROR)
    target_compile_options(velapo_options INTERFACE -Werror)
  endif()
endif()

if(WIN32)
  # Unicode Win32 entry points, no min/max macros, Windows 10 API level.
  target_compile_definitions(velapo_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
  # COM interfaces end by Release and have no virtual destructor, so every
  # class implementing one would warn; the Linux build, whose interfaces hide
  # their destructors, keeps the check.
  target_compile_options(velapo_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-non-virtual-dtor>)
  if(MINGW)
    # Link the MinGW runtime statically, so the DLLs and tests run under Wine
    # or on Windows without the cross compiler's runtime DLLs beside them.
    target_link_options(velapo_options INTERFACE -static -static-libgcc -static-libstdc++)
  endif()
else()
  find_package(Threads REQUIRED)
  target_link_libraries(velapo_options INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
endif()

if(VELAPO_SANITIZE)
  string(REPLACE ";" "," _velapo_san "${VELAPO_SANITIZE}")
  target_compile_options(velapo_options INTERFACE -fsanitize=${_velapo_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(velapo_options INTERFACE -fsanitize=${_velapo_san})
endif()

# A fuzz build traces the branches of every library, not only of the fuzz
# harnesses, or libFuzzer would be blind to the parsers it exercises.
if(VELAPO_BUILD_FUZZ)
  target_compile_options(velapo_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# velapo_add_library(<name> SOURCES <files...> [DEPS <targets...>])
# One static library per source folder; DEPS are linked PUBLIC so that the
# dependency order of the folders carries through to everything that links.
function(velapo_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC velapo_options ${ARG_DEPS})
endfunction()
