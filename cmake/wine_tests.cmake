# Runs the Windows tests under wine64 with a prefix kept in the build tree.
#
# A persistent wineserver and wineboot are started with every stream on
# /dev/null (scripts/wine-session) before test discovery at link time and
# as a CTest fixture; the cleanup fixture ends the server.
set(TOLVAR_WINE64 /usr/lib/wine/wine64)
set(TOLVAR_WINE_ENV
  WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=)
set(CMAKE_CROSSCOMPILING_EMULATOR env ${TOLVAR_WINE_ENV} ${TOLVAR_WINE64})

set(TOLVAR_WINE_START ${CMAKE_SOURCE_DIR}/scripts/wine-session start ${CMAKE_BINARY_DIR}/wineprefix)
set(TOLVAR_WINE_STOP ${CMAKE_SOURCE_DIR}/scripts/wine-session stop ${CMAKE_BINARY_DIR}/wineprefix)

add_test(NAME wine_start COMMAND ${TOLVAR_WINE_START})
set_tests_properties(wine_start PROPERTIES FIXTURES_SETUP wine)
add_test(NAME wine_stop COMMAND ${TOLVAR_WINE_STOP})
set_tests_properties(wine_stop PROPERTIES FIXTURES_CLEANUP wine)

set(TOLVAR_WINE_TEST_PROPERTIES FIXTURES_REQUIRED wine)

# Call on every executable whose tests are discovered by running it.
function(tolvar_start_wine_before_discovery target)
  add_custom_command(TARGET ${target} POST_BUILD COMMAND ${TOLVAR_WINE_START} VERBATIM)
endfunction()
