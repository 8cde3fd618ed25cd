option(TARNWICK_SANITIZERS "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(TARNWICK_FUZZERS "Build the fuzz targets; requires clang and TARNWICK_SANITIZERS" OFF)

if(TARNWICK_FUZZERS)
  # libFuzzer needs to see which code an input reaches.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

function(tarnwick_sanitize target)
  set(flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(${target} INTERFACE ${flags})
  target_link_options(${target} INTERFACE ${flags})
endfunction()
