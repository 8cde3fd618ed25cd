# The publishing kit is a separate package, because a vendor need not run Tarnwick itself. From
# source, only `cmake --install BUILD --component tarnwick-publish` installs it.

set(kit_documents ${CMAKE_INSTALL_DATADIR}/doc/tarnwick-publish)
set(kit_rules COMPONENT tarnwick-publish EXCLUDE_FROM_ALL)

install(TARGETS tarnwick-publish DESTINATION ${CMAKE_INSTALL_BINDIR} ${kit_rules})

# Unit templates: an administrator enables an instance for each home.
install(FILES packaging/systemd/tarnwick-mirror@.service packaging/systemd/tarnwick-mirror@.timer
        DESTINATION lib/systemd/system ${kit_rules})

# The installed command is in PATH, so its documents call it without a folder.
foreach(document README.md FLEET.md FORMAT.md)
  file(READ publish/${document} text)
  string(REPLACE "build/release/tarnwick-publish" "tarnwick-publish" text "${text}")
  file(WRITE ${packaged}/kit/${document} "${text}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS publish/${document})
  install(FILES ${packaged}/kit/${document} DESTINATION ${kit_documents} ${kit_rules})
endforeach()
install(FILES ${packaging}/debian/copyright DESTINATION ${kit_documents} ${kit_rules})
install(FILES ${packaged}/changelog.gz DESTINATION ${kit_documents} ${kit_rules})
file(READ ${packaged}/changelog changes)
string(REGEX REPLACE "(^|\n)tarnwick \\(" "\\1tarnwick-publish (" changes "${changes}")
file(CONFIGURE OUTPUT ${packaged}/kit/changelog CONTENT "${changes}" @ONLY)
tarnwick_install_compressed(${packaged}/kit/changelog kit/changelog.Debian ${kit_documents} ${kit_rules})
configure_file(${packaging}/man/tarnwick-publish.1 ${packaged}/tarnwick-publish.1 @ONLY)
tarnwick_install_compressed(${packaged}/tarnwick-publish.1 tarnwick-publish.1
                            ${CMAKE_INSTALL_MANDIR}/man1 ${kit_rules})

# The overrides of the program apply to the kit too.
file(READ ${packaging}/debian/lintian-overrides overrides)
string(REPLACE "\ntarnwick:" "\ntarnwick-publish:" overrides "${overrides}")
string(REPLACE "usr/sbin/tarnwick" "usr/bin/tarnwick-publish" overrides "${overrides}")
file(WRITE ${packaged}/kit/lintian-overrides "${overrides}")
install(FILES ${packaged}/kit/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME tarnwick-publish ${kit_rules})

set(CPACK_DEBIAN_TARNWICK-PUBLISH_PACKAGE_NAME tarnwick-publish)
set(CPACK_DEBIAN_TARNWICK-PUBLISH_PACKAGE_DEPENDS "ca-certificates, clamav")
set(CPACK_DEBIAN_TARNWICK-PUBLISH_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TARNWICK-PUBLISH_PACKAGE_RECOMMENDS "clamav-freshclam, nginx-light, rsync")
set(CPACK_DEBIAN_TARNWICK-PUBLISH_PACKAGE_SUGGESTS "openssh-client")
set(CPACK_DEBIAN_TARNWICK-PUBLISH_DESCRIPTION
"publishes signed virus definitions for machines that run tarnwick
Makes versioned containers of a folder of ClamAV signatures, the scripts that
lead from each version to the next, and their signatures. Prints the nginx
configuration that serves them, and tests the servers as a machine would.
.
This package is for the vendor of such definitions. Machines that download them
need only the package tarnwick.")
