# cmake --install: the public header, the shared library, the tolvar command
# and its man page, a CMake package (find_package(tolvar) gives
# tolvar::tolvar) and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(tolvar INTERFACE
  $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS tolvar EXPORT tolvarTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tolvar)
install(TARGETS tolvar_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(TOLVAR_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tolvar)
install(EXPORT tolvarTargets NAMESPACE tolvar:: DESTINATION ${TOLVAR_PACKAGE_DIR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/tolvarConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/tolvarConfig.cmake
  INSTALL_DESTINATION ${TOLVAR_PACKAGE_DIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_BINDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/tolvarConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/tolvarConfig.cmake ${CMAKE_BINARY_DIR}/package/tolvarConfigVersion.cmake
  DESTINATION ${TOLVAR_PACKAGE_DIR})

# pkg-config takes the prefix given at configure time; the file is written
# at install time so that cmake --install --prefix is honoured.
install(CODE "
  set(CMAKE_INSTALL_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(CMAKE_INSTALL_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(CMAKE_INSTALL_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(PROJECT_VERSION \"${PROJECT_VERSION}\")
  configure_file(\"${CMAKE_SOURCE_DIR}/cmake/tolvar.pc.in\"
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/tolvar.pc\" @ONLY)
  message(STATUS \"Installing: \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/tolvar.pc\")
")
include(cmake/man_page.cmake)
