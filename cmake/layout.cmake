# The build tree has nearly the layout of an installation, so that the very same RUNPATH serves both:
#   bin/qelcd, bin/qelc, bin/standin-manager     lib/qelcd/libtw.so.1 and its three sisters
# An installation has qelcd in sbin, and calls the last one qelc-manager.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(QELCD_PLATFORM_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib/qelcd)

# qelcd_room(NAME SOURCES... LINKS...): one static library per folder, linked as qelcd-NAME.
function(qelcd_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;LINKS" ${ARGN})
  add_library(qelcd-${name} STATIC ${ROOM_SOURCES})
  target_link_libraries(qelcd-${name} PUBLIC ${ROOM_LINKS})
endfunction()

# qelcd_platform_library(NAME SOURCES... LINKS...): lib<NAME>.so.1, one of the four libraries of the seam.
# DIRECTORY says where it is put; the default is the private folder beside the daemon.
function(qelcd_platform_library target)
  cmake_parse_arguments(LIB "" "NAME;DIRECTORY" "SOURCES;LINKS" ${ARGN})
  if(NOT LIB_DIRECTORY)
    set(LIB_DIRECTORY ${QELCD_PLATFORM_OUTPUT_DIRECTORY})
  endif()
  add_library(${target} SHARED ${LIB_SOURCES})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${LIB_NAME} SOVERSION 1
    LIBRARY_OUTPUT_DIRECTORY ${LIB_DIRECTORY})
  target_link_libraries(${target} PRIVATE ${LIB_LINKS})
  target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR}/platform/include)
endfunction()
