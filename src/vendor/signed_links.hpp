#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "transfer/http/link.hpp"

namespace tarnwick {

/// A link to `path`, which begins with "/", on the vendor's host for signed links. The link soon
/// expires: make it immediately before the request that uses it.
[[nodiscard]] std::string signedLinkForPath(std::string_view path);

/// Makes such links. Their token and expiry are their secret part.
[[nodiscard]] LinkMaker signedLinksTo(std::string path);

/// A host that serves files by signed links, and the secret from which their tokens are made.
struct LinkKeeper {
  std::string_view host;
  std::string_view secret;
};

/// A link to `path` that expires at `expiry`, in seconds since 1970 UTC.
[[nodiscard]] std::string signedLink(const LinkKeeper& keeper, std::string_view path,
                                     std::int64_t expiry);

/// The link that signedLinkForPath makes at this moment.
[[nodiscard]] std::string signedLinkForPathAt(std::string_view path, double secondsSince1970);

}  // namespace tarnwick
