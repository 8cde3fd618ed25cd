#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "transfer/http/link.hpp"

namespace tarnwick {

/// A link to `path` (which begins with "/") on the vendor's second content-network host, valid for
/// a minute: make it just before the request that uses it.
std::string signedLinkForPath(std::string_view path);

/// Makes such links. Their token and expiry are secret.
LinkMaker signedLinksTo(std::string path);

/// What protects a host's links.
struct LinkKeeper {
  std::string_view host;
  std::string_view secret;
};

/// The link to `path` that is valid until a moment given in seconds since 1970 UTC.
std::string signedLink(const LinkKeeper& keeper, std::string_view path, std::int64_t expiry);

/// The link as made at a moment given in seconds since 1970 UTC.
std::string signedLinkForPathAt(std::string_view path, double secondsSince1970);

}  // namespace tarnwick
