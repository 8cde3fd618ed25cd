# cpack runs this before packing. Files in the archives get the release's time, unless the caller
# sets another.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_TARNWICK_RELEASE_TIME})
endif()

# The packager's umask determined the folders' modes; let every user enter them.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)

# cpack's own stripping leaves the section in which compilers record their versions.
file(GLOB programs ${CPACK_TEMPORARY_DIRECTORY}/*/usr/sbin/tarnwick
     ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/tarnwick-publish)
execute_process(COMMAND ${CPACK_TARNWICK_STRIP} --remove-section=.comment ${programs}
                COMMAND_ERROR_IS_FATAL ANY)
