# What `cmake --install` puts where, and the Debian package CPack makes of
# it. Included last, once every target exists.
set(VELAPO_INSTALL_DOCDIR ${CMAKE_INSTALL_DATADIR}/doc/velapo)
set(VELAPO_INSTALL_EXAMPLEDIR ${CMAKE_INSTALL_DATADIR}/velapo/examples)

# The module looks for the tech module beside its own file, so the two share
# a directory (and hosts load the module from there by path).
foreach(module velapo_shared veltech)
  if(TARGET ${module})
    install(TARGETS ${module} LIBRARY DESTINATION ${VELAPO_INSTALL_TECHDIR} RUNTIME DESTINATION ${VELAPO_INSTALL_TECHDIR})
  endif()
endforeach()
foreach(tool velapo-ctl velapo-host)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# A third-party module needs the header and nothing else of ours:
# `pkg-config --cflags veltech`, and `--variable=moduledir` for where hosts
# installed this way look for modules.
install(FILES ${PROJECT_SOURCE_DIR}/include/veltech/veltech_abi.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltech)
file(RELATIVE_PATH VELAPO_PC_TO_PREFIX ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VELAPO_PC_TO_PREFIX "${VELAPO_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/veltech.pc.in ${PROJECT_BINARY_DIR}/veltech.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/veltech.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${VELAPO_INSTALL_EXAMPLEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${VELAPO_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${VELAPO_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME velapo)
set(CPACK_PACKAGE_VENDOR "velapo")
set(CPACK_PACKAGE_CONTACT "velapo maintainers <velapo@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Audio effects host: engine, tech module and control tools")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
# The libraries the programs link (tinyxml2, speexdsp, the C++ runtime) come
# from what dpkg-shlibdeps finds in the installed files.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
