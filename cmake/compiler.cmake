# Flags that every target of the house shares: warnings, hardening, sanitizers.
include_directories(${CMAKE_SOURCE_DIR})
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wundef -Wformat=2
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)
add_compile_options(-Wno-missing-field-initializers) # records have defaults; an initialiser names what differs
if(QELCD_WERROR)
  add_compile_options(-Werror)
endif()

# Our code is compiled for Intel's control-flow protection (IBT and shadow stacks), but no program or library is marked
# so: Debian builds the start files of its C library (Scrt1.o, crti.o, crtn.o) without it, and the linker gives the mark
# only if every object has it (-Wl,-z,cet-report=warning names them). It is not forced: crti.o begins _init without a landing
# pad, so the mark would not be true.
add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection=full -fno-plt)
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

# No copy relocations: each would put another library's symbol among those that the daemon exports.
add_compile_options(-mno-direct-extern-access)

if(QELCD_SANITIZE)
  # g++ 12 takes the sanitizers' own code in <regex> for the use of something uninitialised.
  add_compile_options(-fsanitize=${QELCD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
    -Wno-maybe-uninitialized)
  add_link_options(-fsanitize=${QELCD_SANITIZE})
else()
  # Fortified calls need optimisation, and they hide from the sanitizers what these want to see.
  add_compile_options($<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=3>)
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections)
endif()
