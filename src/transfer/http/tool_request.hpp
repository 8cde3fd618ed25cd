#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "transfer/http/http_client.hpp"

namespace tarnwick {

/// How long nothing at all may arrive: of a small answer, and of a download or its signature.
inline constexpr std::chrono::seconds synchronousIdleTimeout(15);
inline constexpr std::chrono::seconds downloadIdleTimeout(60);

/// The "User-Agent" of the tool's own requests. The blank at its end belongs to it.
std::string toolUserAgent(std::string_view toolVersion);

/// A synchronous request as this tool makes them.
HttpRequest toolRequest(std::string url, std::string_view userAgent);

}  // namespace tarnwick
