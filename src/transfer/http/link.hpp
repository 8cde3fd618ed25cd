#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "transfer/http/http_client.hpp"

namespace tarnwick {

/// An address, and the part of it that no log may show, because it is a secret while the link
/// lives.
struct Link {
  std::string url;
  std::string secret = {};

  /// An address to which the link led, as a log may show it.
  [[nodiscard]] std::string shown(std::string_view address) const;
};

/// Called immediately before the request that uses the link, because links can be short-lived.
using LinkMaker = std::function<Link()>;

/// Says in the platform log why a request did not bring what its link names: the status when that
/// is not 200, or the reason why there is no answer.
void logUnlessFound(const Link& link, const HttpResult& result);

}  // namespace tarnwick
