# cpack runs this after packing. Without dpkg-shlibdeps, cpack only warns and builds a package that
# does not depend on the libraries the program needs.
foreach(package ${CPACK_PACKAGE_FILES})
  execute_process(COMMAND dpkg-deb --field ${package} Depends OUTPUT_VARIABLE depends
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT depends MATCHES "libc[0-9]")
    file(REMOVE ${package})
    message(FATAL_ERROR "The libraries that the package depends on were not found; "
                        "is dpkg-shlibdeps installed? (Debian's package dpkg-dev)")
  endif()
endforeach()
