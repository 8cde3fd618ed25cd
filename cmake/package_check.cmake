# Run by cpack when it has packed. It only warns when it has no means to find the libraries that the
# program needs, and its package would then be installed without them and not start.
foreach(package ${CPACK_PACKAGE_FILES})
  execute_process(COMMAND dpkg-deb --field ${package} Depends OUTPUT_VARIABLE depends
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  if(NOT depends MATCHES "libc[0-9]")
    file(REMOVE ${package})
    message(FATAL_ERROR "The libraries that the package depends on were not found; "
                        "is dpkg-shlibdeps installed? (Debian's package dpkg-dev)")
  endif()
endforeach()
