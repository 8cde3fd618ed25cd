# Warnings are errors in our builds; a packager with a newer compiler can disable this.
option(TARNWICK_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" ON)

add_library(tarnwick_warnings INTERFACE)
target_compile_options(tarnwick_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor
  -Wold-style-cast -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough
  $<$<BOOL:${TARNWICK_WARNINGS_AS_ERRORS}>:-Werror>)
