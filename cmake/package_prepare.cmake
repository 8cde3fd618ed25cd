# Run by cpack before it packs. Its archives bear this time, unless the caller has another in mind.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  set(ENV{SOURCE_DATE_EPOCH} ${CPACK_TARNWICK_RELEASE_TIME})
endif()

# Folders were made by the habits of whoever packs, and everybody shall be able to enter them.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)

# cpack's own stripping leaves what the compilers said of themselves.
file(GLOB programs ${CPACK_TEMPORARY_DIRECTORY}/*/usr/sbin/tarnwick
     ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/tarnwick-publish)
execute_process(COMMAND ${CPACK_TARNWICK_STRIP} --remove-section=.comment ${programs}
                COMMAND_ERROR_IS_FATAL ANY)
