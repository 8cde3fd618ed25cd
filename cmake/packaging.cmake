# The installed files, and the Debian packages made of them.

find_program(GZIP gzip REQUIRED)
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(packaged ${PROJECT_BINARY_DIR}/packaging)

# Files belong to the package tarnwick unless a rule names the other package.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tarnwick)

# If a vendor sets its own package release, add an entry for it before ours in the Debian changelog.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${packaging}/debian/changelog)
file(STRINGS ${packaging}/debian/changelog latest LIMIT_COUNT 1)
file(STRINGS ${packaging}/debian/changelog signature REGEX "^ -- .*  " LIMIT_COUNT 1)
string(REGEX REPLACE "^ -- .*  " "" released "${signature}")
if(NOT latest MATCHES "\\(([^-]+)-([^)]+)\\)" OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}: ${latest}")
endif()
file(READ ${packaging}/debian/changelog changes)
if(NOT CMAKE_MATCH_2 STREQUAL TARNWICK_PACKAGE_RELEASE)
  string(PREPEND changes "tarnwick (${PROJECT_VERSION}-${TARNWICK_PACKAGE_RELEASE}) stable; urgency=medium\n\n"
    "  * Built for ${TARNWICK_CONTENT_HOST}.\n\n -- ${TARNWICK_PACKAGE_MAINTAINER}  ${released}\n\n")
endif()
file(CONFIGURE OUTPUT ${packaged}/changelog CONTENT "${changes}" @ONLY)

# gzip -n stores no time, so the same source gives the same package.
function(tarnwick_install_compressed source name destination)
  add_custom_command(OUTPUT ${packaged}/${name}.gz
    COMMAND ${GZIP} -9nc ${source} > ${packaged}/${name}.gz DEPENDS ${source} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY TARNWICK_COMPRESSED ${packaged}/${name}.gz)
  get_filename_component(installed ${name} NAME)
  install(FILES ${packaged}/${name}.gz DESTINATION ${destination} RENAME ${installed}.gz ${ARGN})
endfunction()

install(TARGETS tarnwick DESTINATION ${CMAKE_INSTALL_SBINDIR})
configure_file(${packaging}/man/tarnwick.8 ${packaged}/tarnwick.8 @ONLY)
tarnwick_install_compressed(${packaged}/tarnwick.8 tarnwick.8 ${CMAKE_INSTALL_MANDIR}/man8)

set(documents ${CMAKE_INSTALL_DATADIR}/doc/tarnwick)
# README is installed without the files in subfolders, so links to those become plain text.
file(READ README.md readme)
string(REGEX REPLACE "\\[([^]]+)\\]\\([^)]*/[^)]*\\)" "`\\1`" readme "${readme}")
string(REPLACE "[MIT](LICENSE)" "[MIT](copyright)" readme "${readme}")
file(WRITE ${packaged}/README.md "${readme}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS README.md)
install(FILES ${packaged}/README.md SECURITY.md ARCHITECTURE.md CONTRIBUTING.md DESTINATION ${documents})
install(FILES ${packaging}/debian/copyright DESTINATION ${documents})
tarnwick_install_compressed(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog ${documents})

if(APPLE)
  install(FILES ${packaging}/launchd/uk.co.pellawaysoftware.vestrum.tarnwick.plist
          DESTINATION /Library/LaunchDaemons)
else()
  install(PROGRAMS ${packaging}/linux/provision ${packaging}/linux/sigtool
                   ${packaging}/linux/freshclam ${packaging}/linux/notify-clamd
                   ${packaging}/linux/note-run
                   ${packaging}/linux/setup ${packaging}/linux/takedown
          DESTINATION lib/tarnwick)
  install(FILES ${PROJECT_BINARY_DIR}/generated/build DESTINATION lib/tarnwick)
  install(PROGRAMS ${packaging}/apparmor/override DESTINATION lib/tarnwick/apparmor)
  install(FILES ${packaging}/apparmor/freshclam ${packaging}/apparmor/clamd
          DESTINATION lib/tarnwick/apparmor)
  install(PROGRAMS ${packaging}/monitoring/check_tarnwick DESTINATION lib/nagios/plugins)
  # The service's limits depend on the build's largest download.
  math(EXPR TARNWICK_SERVICE_FILE_SIZE "4 * ${TARNWICK_LARGEST_DOWNLOAD}")
  math(EXPR TARNWICK_SERVICE_MEMORY "2 * ${TARNWICK_LARGEST_DOWNLOAD} + 4 * 1024 * 1024 * 1024")
  configure_file(${packaging}/systemd/tarnwick.service ${packaged}/tarnwick.service @ONLY)
  install(FILES ${packaged}/tarnwick.service ${packaging}/systemd/tarnwick.timer
          DESTINATION lib/systemd/system)
  tarnwick_install_compressed(${packaged}/changelog changelog.Debian ${documents})
  install(FILES ${packaging}/debian/lintian-overrides
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME tarnwick)
  include(cmake/packaging_kit.cmake)
endif()

get_property(compressed GLOBAL PROPERTY TARNWICK_COMPRESSED)
add_custom_target(tarnwick_documents ALL DEPENDS ${compressed})

if(APPLE)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_TARNWICK_STRIP ${CMAKE_STRIP})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${TARNWICK_PACKAGE_RELEASE})
execute_process(COMMAND date -ud ${released} +%s OUTPUT_VARIABLE CPACK_TARNWICK_RELEASE_TIME
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_prepare.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_check.cmake)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TARNWICK_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_COMPONENTS_ALL tarnwick tarnwick-publish)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_NAME tarnwick)
set(CPACK_DEBIAN_TARNWICK_PACKAGE_DEPENDS
    "ca-certificates, clamav, clamav-freshclam, psmisc, unzip")
set(CPACK_DEBIAN_TARNWICK_PACKAGE_SUGGESTS "apparmor, clamdscan, monitoring-plugins-common")
set(CPACK_DEBIAN_TARNWICK_PACKAGE_SHLIBDEPS ON)
# Empty, because each package's description starts with its own summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_TARNWICK_DESCRIPTION
"keeps the virus-definition databases of a ClamAV installation up to date
Updates a vendor's own definitions by signed scripts, or downloads them whole,
tests them with ClamAV's scanner and installs them. Then runs ClamAV's updater
for the upstream databases; if that keeps failing, repairs the usual causes and
downloads the databases itself.
.
The installation is under /usr/local/vestRum and uses this system's ClamAV. A
systemd timer starts a run every hour, and a monitoring plugin warns when the
databases get old.")
set(CPACK_DEBIAN_TARNWICK_PACKAGE_CONTROL_EXTRA
    ${packaging}/debian/postinst ${packaging}/debian/prerm ${packaging}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
