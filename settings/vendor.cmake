# The settings of a vendor's own build: hosts, link secret, public key, packager.

set(TARNWICK_CONTENT_HOST content.vestrum.example CACHE STRING
    "Vendor's primary content-network host, plain URLs")
set(TARNWICK_LINK_HOST links.vestrum.example CACHE STRING
    "Vendor's second content-network host, signed links")
set(TARNWICK_MIRROR_HOST mirror.vestrum.example CACHE STRING
    "Vendor's database mirror host")
set(TARNWICK_OLDER_MIRROR_HOST oldmirror.vestrum.example CACHE STRING
    "Vendor's database mirror host that earlier releases wrote into freshclam.conf")
set(TARNWICK_VERSION_RECORD_HOST version.vestrum.example CACHE STRING
    "Vendor's DNS host for the version record")
set(TARNWICK_UPSTREAM_MIRROR_HOST database.clamav.net CACHE STRING
    "ClamAV's own database mirror host")
set(TARNWICK_UPSTREAM_VERSION_RECORD_HOST current.cvd.clamav.net CACHE STRING
    "ClamAV's own DNS host for the version record")
set(TARNWICK_LINK_SECRET Kesto-Ra CACHE STRING
    "Secret shared with the second content-network host")
set(TARNWICK_PUBLIC_KEY_FILE "${CMAKE_CURRENT_LIST_DIR}/vendor_public_key.pem" CACHE FILEPATH
    "PEM file of the vendor's DSA public key, on one line or many")
set(TARNWICK_LARGEST_DOWNLOAD 2147483648 CACHE STRING
    "Largest size of a download in bytes; a larger one fails")
set(TARNWICK_PACKAGE_MAINTAINER "The Tarnwick developers <tarnwick@vestrum.example>" CACHE STRING
    "Maintainer of the package")
set(TARNWICK_PACKAGE_RELEASE 1 CACHE STRING
    "Release of the package, for one version of the program")
string(LENGTH "${TARNWICK_LARGEST_DOWNLOAD}" digits)
if(NOT TARNWICK_LARGEST_DOWNLOAD MATCHES "^[1-9][0-9]*$" OR digits GREATER 18)
  message(FATAL_ERROR "TARNWICK_LARGEST_DOWNLOAD is not a number of bytes: ${TARNWICK_LARGEST_DOWNLOAD}")
endif()

# The key is compiled in as one line: marker, body, marker.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${TARNWICK_PUBLIC_KEY_FILE}")
file(READ "${TARNWICK_PUBLIC_KEY_FILE}" TARNWICK_PUBLIC_KEY)
string(REGEX REPLACE "[\r\n]" "" TARNWICK_PUBLIC_KEY "${TARNWICK_PUBLIC_KEY}")

# The fingerprint, as the publishing kit prints it: the digest of the key's DER form.
string(REGEX REPLACE "-----[A-Z ]+-----" "" body "${TARNWICK_PUBLIC_KEY}")
file(WRITE "${PROJECT_BINARY_DIR}/generated/key.base64" "${body}")
execute_process(COMMAND base64 -d INPUT_FILE "${PROJECT_BINARY_DIR}/generated/key.base64"
                OUTPUT_FILE "${PROJECT_BINARY_DIR}/generated/key.der" RESULT_VARIABLE failed)
if(failed OR body STREQUAL "")
  message(FATAL_ERROR "TARNWICK_PUBLIC_KEY_FILE contains no PEM key: ${TARNWICK_PUBLIC_KEY_FILE}")
endif()
file(SHA256 "${PROJECT_BINARY_DIR}/generated/key.der" TARNWICK_PUBLIC_KEY_SHA256)

file(READ "${CMAKE_CURRENT_LIST_DIR}/vendor_public_key.pem" example_key)
string(REGEX REPLACE "[\r\n]" "" example_key "${example_key}")
set(TARNWICK_KEY_OWNER vendor)
if(TARNWICK_PUBLIC_KEY STREQUAL example_key)
  set(TARNWICK_KEY_OWNER example)
endif()

# Warn about the key and the secret only if the hosts are real: a trial build needs one warning only.
if("${TARNWICK_CONTENT_HOST};${TARNWICK_LINK_HOST}" MATCHES "\\.example(;|$)")
  message(WARNING "This build is for hosts that do not exist, ${TARNWICK_CONTENT_HOST} and "
                  "${TARNWICK_LINK_HOST}: you can try it, but no run can download the vendor's "
                  "databases. settings/vendor.cmake lists the settings for your own hosts.")
else()
  if(TARNWICK_KEY_OWNER STREQUAL example)
    message(WARNING "This build has your own hosts but the example key: it refuses everything you sign. "
                    "Set TARNWICK_PUBLIC_KEY_FILE to your own key.")
  endif()
  if(TARNWICK_LINK_SECRET STREQUAL Kesto-Ra)
    message(WARNING "This build signs links with the example secret, which everybody can read, so "
                    "strangers can use your server. Set TARNWICK_LINK_SECRET to your own.")
  endif()
endif()

configure_file("${CMAKE_CURRENT_LIST_DIR}/vendor_settings.hpp.in"
               "${PROJECT_BINARY_DIR}/generated/settings/vendor_settings.hpp" @ONLY)
# The same settings as a text file that is installed with the program.
configure_file("${CMAKE_CURRENT_LIST_DIR}/build.in" "${PROJECT_BINARY_DIR}/generated/build" @ONLY)
