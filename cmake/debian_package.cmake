# cpack -G DEB: tolvar_VERSION_amd64.deb with what cmake --install puts in
# place under /usr, the copyright and changelog files Debian asks for among
# them (cmake --install puts them in share/doc/tolvar too).
# The dependencies come from dpkg-shlibdeps, which reads what the command and
# the library link against, so a library linked later is declared without
# anyone editing a list.
if(WIN32)
  return()
endif()

set(TOLVAR_DEBIAN_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/tolvar)
set(TOLVAR_DEBIAN_CHANGELOG ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
add_custom_command(OUTPUT ${TOLVAR_DEBIAN_CHANGELOG}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
  COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/packaging/debian/changelog > ${TOLVAR_DEBIAN_CHANGELOG}
  DEPENDS ${CMAKE_SOURCE_DIR}/packaging/debian/changelog)
add_custom_target(tolvar_debian_changelog ALL DEPENDS ${TOLVAR_DEBIAN_CHANGELOG})
install(FILES ${CMAKE_SOURCE_DIR}/packaging/debian/copyright ${TOLVAR_DEBIAN_CHANGELOG}
  DESTINATION ${TOLVAR_DEBIAN_DOC_DIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tolvar)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Whoever builds packages for others sets this to their own name and address.
set(TOLVAR_PACKAGE_MAINTAINER "tolvar developers <tolvar@example.org>" CACHE STRING
  "The Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${TOLVAR_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "incremental block-level backup of NTFS volumes from their shadow copies")
set(CPACK_PACKAGE_DESCRIPTION
  "tolvar reads a volume's Volume Shadow Copy store and its NTFS file system\n\
straight from a raw volume image or block device, tells which blocks changed\n\
between two shadow copies, and serves those blocks. The package holds the\n\
tolvar command, the shared library with its C header, pkg-config file and\n\
CMake package, and the man page.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The library sits in /usr/lib: the loader's cache is refreshed through
# dpkg's ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_STRIP_FILES ON)
include(CPack)
