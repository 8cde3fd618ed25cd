#include "transfer/http/link.hpp"

#include <fmt/format.h>

#include "base/platform_log.hpp"
#include "base/text_rules.hpp"

namespace tarnwick {

std::string Link::shown(std::string_view address) const {
  return shownText(secret.empty() ? address : replaced(address, secret, ""));
}

void logUnlessFound(const Link& link, const HttpResult& result) {
  constexpr long found = 200;
  if (const auto* const error = std::get_if<HttpError>(&result)) {
    platformLog(
        fmt::format("Request failed! Error - {} {}", error->description, link.shown(error->url)));
  } else if (const long status = std::get<HttpResponse>(result).status; status != found) {
    platformLog(fmt::format("The server answered {} for {}", status, link.shown(link.url)));
  }
}

}  // namespace tarnwick
