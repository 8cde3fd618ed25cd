#pragma once

#include <string>
#include <string_view>

#include "transfer/http/link.hpp"

namespace tarnwick {

/// A link to `path` (which begins with "/") on the vendor's second content-network host, valid for
/// a minute: make it just before the request that uses it.
std::string signedLinkForPath(std::string_view path);

/// Makes such links. Their token and expiry are secret.
LinkMaker signedLinksTo(std::string path);

/// The link as made at a moment given in seconds since 1970 UTC.
std::string signedLinkForPathAt(std::string_view path, double secondsSince1970);

}  // namespace tarnwick
