#pragma once

#include <string>
#include <string_view>

#include "transfer/http_client.hpp"

namespace tarnwick {

/// The "User-Agent" of the tool's own requests. The blank at its end belongs to it.
std::string toolUserAgent(std::string_view toolVersion);

/// A synchronous request as this tool makes them: the idle limit is 15 seconds.
HttpRequest toolRequest(std::string url, std::string_view userAgent);

}  // namespace tarnwick
