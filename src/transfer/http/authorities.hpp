#pragma once

#include <optional>
#include <string>

namespace tarnwick {

/// Where libcurl looks for certificate authorities; none means that it does not look there. It
/// reads a bundle whole, and a folder of hashed names only as far as it needs to.
struct Authorities {
  std::optional<std::string> bundle = {};
  std::optional<std::string> folder = {};
};

/// What the user names in `CURL_CA_BUNDLE`, `SSL_CERT_FILE` and `SSL_CERT_DIR` replaces the
/// system's bundle and folder, as with curl. Otherwise one of the system's two suffices: the
/// folder, if it is hashed, has at least as many certificates as the bundle and is not older; else
/// the bundle.
Authorities chooseAuthorities(const Authorities& system);

}  // namespace tarnwick
