#include "transfer/http/tool_request.hpp"

#include <fmt/format.h>

#include "platform/platform.hpp"

namespace tarnwick {

std::string toolUserAgent(std::string_view toolVersion) {
  return fmt::format("Tarnwick/{} (Macintosh; Intel Mac OS X {}) ", toolVersion,
                     platform::operatingSystemVersion());
}

HttpRequest toolRequest(std::string url, std::string_view userAgent) {
  return {.url = std::move(url),
          .userAgent = std::string(userAgent),
          .idleTimeout = synchronousIdleTimeout};
}

}  // namespace tarnwick
