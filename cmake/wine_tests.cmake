# Runs the Windows tests under wine64 with a prefix kept in the build tree.
#
# wine's services inherit the standard streams of whoever starts them, so a
# persistent wineserver and wineboot are started once with every stream on
# /dev/null: before test discovery (at link time) and as a CTest fixture.
# Otherwise each test waits for the services, or hangs.
set(TOLVAR_WINE64 /usr/lib/wine/wine64)
set(TOLVAR_WINE_ENV
  WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=)
set(CMAKE_CROSSCOMPILING_EMULATOR env ${TOLVAR_WINE_ENV} ${TOLVAR_WINE64})

set(TOLVAR_WINE_START
  env ${TOLVAR_WINE_ENV} sh -c
  "wineserver -p </dev/null >/dev/null 2>&1; ${TOLVAR_WINE64} wineboot </dev/null >/dev/null 2>&1; true")
set(TOLVAR_WINE_STOP env ${TOLVAR_WINE_ENV} sh -c "wineserver -k </dev/null >/dev/null 2>&1; true")

add_test(NAME wine_start COMMAND ${TOLVAR_WINE_START})
set_tests_properties(wine_start PROPERTIES FIXTURES_SETUP wine)
add_test(NAME wine_stop COMMAND ${TOLVAR_WINE_STOP})
set_tests_properties(wine_stop PROPERTIES FIXTURES_CLEANUP wine)

set(TOLVAR_WINE_TEST_PROPERTIES FIXTURES_REQUIRED wine)

# Call on every executable whose tests are discovered by running it.
function(tolvar_start_wine_before_discovery target)
  add_custom_command(TARGET ${target} POST_BUILD COMMAND ${TOLVAR_WINE_START} VERBATIM)
endfunction()
