option(TARNWICK_SANITIZERS "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(TARNWICK_FUZZERS "Build the fuzz targets; wants clang, and the sanitizers on" OFF)

if(TARNWICK_FUZZERS)
  # Lets the targets see which input reached what.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

function(tarnwick_sanitize target)
  set(flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(${target} INTERFACE ${flags})
  target_link_options(${target} INTERFACE ${flags})
endfunction()
