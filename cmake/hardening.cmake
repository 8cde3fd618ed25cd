# The program runs as root: position-independent, read-only relocations, checked library calls, a
# stack that can neither be overrun unnoticed nor executed, jumps only to where jumps may lead.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
check_pie_supported(LANGUAGES CXX)

# A processor's own protection is one that the compiler for another refuses or warns of.
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

# The C library warns where it has no such level, or where the compiler lacks what the level needs.
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
  # It takes the place of a level that a distribution gives, and does nothing without optimising.
  tarnwick_find_fortify_level(level)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(${target} INTERFACE
    $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=${level}>)
  if(NOT APPLE)
    target_link_options(${target} INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
  endif()
endfunction()
