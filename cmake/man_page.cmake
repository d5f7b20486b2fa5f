# The tolvar command's man page, made at build time by help2man from the
# command's own --help and --version (and cli/tolvar.h2m: name, opening and
# see-also only, nothing a new command could make wrong), so that it lists
# whatever the command accepts. A build that cannot run the command (Windows)
# or has no help2man makes none.
if(WIN32 OR CMAKE_CROSSCOMPILING)
  return()
endif()
find_program(TOLVAR_HELP2MAN help2man)
find_program(TOLVAR_GZIP gzip)
if(NOT TOLVAR_HELP2MAN OR NOT TOLVAR_GZIP)
  message(STATUS "help2man or gzip not found: the tolvar man page is not made")
  return()
endif()

set(TOLVAR_MAN_DIR ${CMAKE_BINARY_DIR}/man)
set(TOLVAR_MAN_PAGE ${TOLVAR_MAN_DIR}/tolvar.1.gz)
add_custom_command(OUTPUT ${TOLVAR_MAN_PAGE}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${TOLVAR_MAN_DIR}
  COMMAND ${TOLVAR_HELP2MAN} --no-info --include ${CMAKE_SOURCE_DIR}/cli/tolvar.h2m
    --output ${TOLVAR_MAN_DIR}/tolvar.1 $<TARGET_FILE:tolvar_cli>
  COMMAND ${TOLVAR_GZIP} -9nf ${TOLVAR_MAN_DIR}/tolvar.1
  DEPENDS tolvar_cli ${CMAKE_SOURCE_DIR}/cli/tolvar.h2m
  COMMENT "Making the tolvar man page with help2man"
  VERBATIM)
add_custom_target(tolvar_man_page ALL DEPENDS ${TOLVAR_MAN_PAGE})
install(FILES ${TOLVAR_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
