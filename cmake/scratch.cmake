# The integration tests of a directory write their scratch (built images,
# unpacked disks, copies, outputs) beside that directory's CTest files.
# tolvar_remove_scratch_when_done(), called last in such a directory, adds
# a cleanup test that empties it once every test of the directory, and of
# any fixture named in SHARED_WITH, has run, so that a full run holds the
# scratch of the directories still at work rather than of all of them.
# TOLVAR_KEEP_SCRATCH=1 in the environment keeps it for a look afterwards.
#
# A test of another directory that reads this directory's scratch names
# the fixture scratch_<directory> in its FIXTURES_REQUIRED.
function(tolvar_remove_scratch_when_done)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "SHARED_WITH")
  get_property(tests DIRECTORY PROPERTY TESTS)
  if(NOT tests)
    return()
  endif()
  get_filename_component(name ${CMAKE_CURRENT_BINARY_DIR} NAME)
  set(fixture scratch_${name})
  foreach(test ${tests})
    set_property(TEST ${test} APPEND PROPERTY FIXTURES_REQUIRED ${fixture})
  endforeach()
  add_test(NAME ${name}_remove_scratch
    COMMAND ${CMAKE_COMMAND} -DDIR=${CMAKE_CURRENT_BINARY_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/remove_scratch.cmake)
  set_tests_properties(${name}_remove_scratch PROPERTIES FIXTURES_CLEANUP "${fixture};${arg_SHARED_WITH}" LABELS scratch)
endfunction()
