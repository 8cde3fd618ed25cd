# The program runs as root, so build it with every protection that the compiler offers: position
# independence, read-only relocations, checked library calls, a guarded stack that cannot be
# executed, and protected jumps.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
check_pie_supported(LANGUAGES CXX)

# Adds only flags that the compiler accepts: some are for one kind of processor.
function(tarnwick_add_known_flags target)
  set(CMAKE_REQUIRED_FLAGS -Werror)
  foreach(flag ${ARGN})
    string(MAKE_C_IDENTIFIER "TARNWICK_KNOWS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      target_compile_options(${target} INTERFACE ${flag})
    endif()
  endforeach()
endfunction()

# Level 3 if it compiles without a warning: an old C library or compiler does not support it.
function(tarnwick_find_fortify_level result)
  set(CMAKE_REQUIRED_FLAGS "-Werror -O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstring>\nint main() { return 0; }" TARNWICK_KNOWS_FORTIFY_3)
  set(${result} 2 PARENT_SCOPE)
  if(TARNWICK_KNOWS_FORTIFY_3)
    set(${result} 3 PARENT_SCOPE)
  endif()
endfunction()

function(tarnwick_harden target)
  tarnwick_add_known_flags(${target} -fstack-protector-strong -fstack-clash-protection
                           -fcf-protection -mbranch-protection=standard)
  target_compile_definitions(${target} INTERFACE _GLIBCXX_ASSERTIONS)
  # Replaces a level set by a distribution's flags. Needs optimisation to work.
  tarnwick_find_fortify_level(level)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(${target} INTERFACE
    $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=${level}>)
  if(NOT APPLE)
    target_link_options(${target} INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
  endif()
endfunction()
