# What a vendor sets for a build of its own: hosts, link secret, public key, who packs it.

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
    "Bytes that a download may have; a longer one fails")
set(TARNWICK_PACKAGE_MAINTAINER "The Tarnwick developers <tarnwick@vestrum.example>" CACHE STRING
    "Who answers for the package")
set(TARNWICK_PACKAGE_RELEASE 1 CACHE STRING
    "Counts the packages of one version")
string(LENGTH "${TARNWICK_LARGEST_DOWNLOAD}" digits)
if(NOT TARNWICK_LARGEST_DOWNLOAD MATCHES "^[1-9][0-9]*$" OR digits GREATER 18)
  message(FATAL_ERROR "TARNWICK_LARGEST_DOWNLOAD is no number of bytes: ${TARNWICK_LARGEST_DOWNLOAD}")
endif()

# The key is compiled in as one line: marker, body, marker.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${TARNWICK_PUBLIC_KEY_FILE}")
file(READ "${TARNWICK_PUBLIC_KEY_FILE}" TARNWICK_PUBLIC_KEY)
string(REGEX REPLACE "[\r\n]" "" TARNWICK_PUBLIC_KEY "${TARNWICK_PUBLIC_KEY}")

# The publishing kit names keys so: by the digest of their DER form.
string(REGEX REPLACE "-----[A-Z ]+-----" "" body "${TARNWICK_PUBLIC_KEY}")
file(WRITE "${PROJECT_BINARY_DIR}/generated/key.base64" "${body}")
execute_process(COMMAND base64 -d INPUT_FILE "${PROJECT_BINARY_DIR}/generated/key.base64"
                OUTPUT_FILE "${PROJECT_BINARY_DIR}/generated/key.der" RESULT_VARIABLE failed)
if(failed OR body STREQUAL "")
  message(FATAL_ERROR "TARNWICK_PUBLIC_KEY_FILE holds no PEM key: ${TARNWICK_PUBLIC_KEY_FILE}")
endif()
file(SHA256 "${PROJECT_BINARY_DIR}/generated/key.der" TARNWICK_PUBLIC_KEY_SHA256)

file(READ "${CMAKE_CURRENT_LIST_DIR}/vendor_public_key.pem" example_key)
string(REGEX REPLACE "[\r\n]" "" example_key "${example_key}")
set(TARNWICK_KEY_OWNER vendor)
if(TARNWICK_PUBLIC_KEY STREQUAL example_key)
  set(TARNWICK_KEY_OWNER example)
endif()

# One thing after the other: whoever only tries it out is told once.
if("${TARNWICK_CONTENT_HOST};${TARNWICK_LINK_HOST}" MATCHES "\\.example(;|$)")
  message(WARNING "This build is for hosts that do not exist, ${TARNWICK_CONTENT_HOST} and "
                  "${TARNWICK_LINK_HOST}: it can be tried, but no run of it can fetch the vendor's "
                  "databases. settings/vendor.cmake tells what to set for hosts of your own.")
else()
  if(TARNWICK_KEY_OWNER STREQUAL example)
    message(WARNING "This build is for hosts of your own but for the example key: it refuses whatever you "
                    "sign. TARNWICK_PUBLIC_KEY_FILE names your own.")
  endif()
  if(TARNWICK_LINK_SECRET STREQUAL Kesto-Ra)
    message(WARNING "This build's links are signed with the example secret, which everybody can read: "
                    "strangers can use your server. TARNWICK_LINK_SECRET sets one of your own.")
  endif()
endif()

configure_file("${CMAKE_CURRENT_LIST_DIR}/vendor_settings.hpp.in"
               "${PROJECT_BINARY_DIR}/generated/settings/vendor_settings.hpp" @ONLY)
# The same for people, on the machine that it is installed on.
configure_file("${CMAKE_CURRENT_LIST_DIR}/build.in" "${PROJECT_BINARY_DIR}/generated/build" @ONLY)
