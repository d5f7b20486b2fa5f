# The library's sources, found by directory. A file named *_win32.cpp or
# *_posix.cpp belongs to that platform only; files named *_exports.cpp hold
# the flat C exports and go into the shared library, everything else into
# the static core library.
file(GLOB_RECURSE _tolvar_all CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/api/*.cpp
  ${CMAKE_SOURCE_DIR}/common/*.cpp
  ${CMAKE_SOURCE_DIR}/core/*.cpp
  ${CMAKE_SOURCE_DIR}/ntfsparsercore/*.cpp)

if(WIN32)
  list(FILTER _tolvar_all EXCLUDE REGEX "_posix\\.cpp$")
else()
  list(FILTER _tolvar_all EXCLUDE REGEX "_win32\\.cpp$")
endif()

set(TOLVAR_EXPORT_SOURCES ${_tolvar_all})
list(FILTER TOLVAR_EXPORT_SOURCES INCLUDE REGEX "_exports\\.cpp$")
set(TOLVAR_CORE_SOURCES ${_tolvar_all})
list(FILTER TOLVAR_CORE_SOURCES EXCLUDE REGEX "_exports\\.cpp$")

# The disk-image containers (Linux only) are picked by cmake/containers.cmake.
list(FILTER TOLVAR_CORE_SOURCES EXCLUDE REGEX "/ntfsparsercore/io/containers/")
