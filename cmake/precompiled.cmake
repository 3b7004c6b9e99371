# The standard headers, compiled once for many sources, where a build begins with nothing. In every other build each source shows
# that it includes what it uses; and what ccache keeps would be of no use with them.
option(QELCD_PRECOMPILED "compile the standard headers once for many sources" OFF)
if(QELCD_PRECOMPILED AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # g++ 12 finds fault with its own std::string when it comes from there. All other builds look for such faults.
  add_compile_options(-Wno-array-bounds -Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread)
endif()

# qelcd_precompile(KIND FOLDER...): for the targets of these folders whose type has KIND in its name. Libraries, which are all
# compiled with the same options, have one set of headers in common; each program has its own.
function(qelcd_precompile kind)
  foreach(folder ${ARGN})
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target ${targets})
      get_target_property(type ${target} TYPE)
      if(NOT type MATCHES ${kind})
        continue()
      elseif(first AND kind STREQUAL LIBRARY)
        target_precompile_headers(${target} REUSE_FROM ${first})
      else()
        set(first ${target})
        target_precompile_headers(${target} PRIVATE <algorithm> <array> <atomic> <cerrno> <chrono> <condition_variable> <cstdint>
          <cstdio> <cstdlib> <cstring> <ctime> <functional> <list> <map> <memory> <mutex> <optional> <set> <string> <string_view>
          <thread> <utility> <vector>)
      endif()
    endforeach()
  endforeach()
endfunction()
