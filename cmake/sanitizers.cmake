option(TARNWICK_SANITIZERS "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(TARNWICK_FUZZERS "Build the fuzz targets; wants clang, and the sanitizers on" OFF)

if(TARNWICK_FUZZERS)
  # Lets the targets see which input reached what.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# The program runs as root: position-independent, read-only relocations, checked library calls.
add_library(tarnwick_code_generation INTERFACE)
if(TARNWICK_SANITIZERS)
  set(TARNWICK_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
  target_compile_options(tarnwick_code_generation INTERFACE ${TARNWICK_SANITIZER_FLAGS})
  target_link_options(tarnwick_code_generation INTERFACE ${TARNWICK_SANITIZER_FLAGS})
else()
  target_compile_options(tarnwick_code_generation INTERFACE
    -fstack-protector-strong $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
  if(NOT APPLE)
    target_link_options(tarnwick_code_generation INTERFACE -Wl,-z,relro,-z,now)
  endif()
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
