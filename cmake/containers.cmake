# Linux: each disk-image container library is optional. Found, its source
# reads the format; absent, a source that names the missing library is built
# instead, and the configure step says what to install. Sets
# TOLVAR_CONTAINER_SOURCES and TOLVAR_CONTAINER_LIBRARIES.
set(TOLVAR_CONTAINER_SOURCES "")
set(TOLVAR_CONTAINER_LIBRARIES "")
set(TOLVAR_CONTAINER_INCLUDES "")
if(WIN32)
  return()
endif()

set(_containers_dir ${CMAKE_SOURCE_DIR}/ntfsparsercore/io/containers)
# name in the file names, library, header, package, formats
foreach(entry "ewf;ewf;libewf.h;libewf-dev;EWF (E01, Ex01)"
              "qcow;qcow;libqcow.h;libqcow-dev;qcow"
              "vhdi;vhdi;libvhdi.h;libvhdi-dev;VHD and VHDX"
              "vmdk;vmdk;libvmdk.h;libvmdk-dev;VMDK")
  list(GET entry 0 name)
  list(GET entry 1 library)
  list(GET entry 2 header)
  list(GET entry 3 package)
  list(GET entry 4 formats)
  find_library(TOLVAR_LIB${library}_LIBRARY NAMES ${library})
  find_path(TOLVAR_LIB${library}_INCLUDE_DIR NAMES ${header})
  if(TOLVAR_LIB${library}_LIBRARY AND TOLVAR_LIB${library}_INCLUDE_DIR)
    message(STATUS "lib${library}: ${TOLVAR_LIB${library}_LIBRARY} (${formats} images)")
    list(APPEND TOLVAR_CONTAINER_SOURCES ${_containers_dir}/${name}_source_posix.cpp)
    list(APPEND TOLVAR_CONTAINER_LIBRARIES ${TOLVAR_LIB${library}_LIBRARY})
    list(APPEND TOLVAR_CONTAINER_INCLUDES ${TOLVAR_LIB${library}_INCLUDE_DIR})
  else()
    message(STATUS "lib${library} not found: ${formats} images will not open (install ${package})")
    list(APPEND TOLVAR_CONTAINER_SOURCES ${_containers_dir}/${name}_source_absent_posix.cpp)
  endif()
endforeach()
