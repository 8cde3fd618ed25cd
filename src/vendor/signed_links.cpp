#include "vendor/signed_links.hpp"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "base/text_rules.hpp"
#include "settings/vendor_settings.hpp"
#include "transfer/signing/file_hash.hpp"

namespace tarnwick {
namespace {

constexpr double secondsOfValidity = 60.0;

std::string safeForUrlPath(std::string token) {
  token = replaced(token, "+", "-");
  token = replaced(token, "/", "_");
  token = replaced(token, "=", "");
  return std::string(trimmed(token));  // removes the line feed at the end
}

}  // namespace

std::string signedLink(const LinkKeeper& keeper, std::string_view path, std::int64_t expiry) {
  const std::string tokenInput = fmt::format("{}{}{}", keeper.secret, path, expiry);
  const std::string token = safeForUrlPath(FileHash::md5HashAsBase64OfString(tokenInput));
  return fmt::format("https://{}/{}/{}{}", keeper.host, token, expiry, path);
}

std::string signedLinkForPathAt(std::string_view path, double secondsSince1970) {
  const auto expiry = static_cast<std::int64_t>(secondsSince1970 + secondsOfValidity);
  return signedLink({.host = settings::linkHost, .secret = settings::linkSecret}, path, expiry);
}

LinkMaker signedLinksTo(std::string path) {
  return [path = std::move(path)] {
    const std::string url = signedLinkForPath(path);
    const std::size_t start = fmt::formatted_size("https://{}", settings::linkHost);
    return Link{.url = url, .secret = url.substr(start, url.size() - start - path.size())};
  };
}

std::string signedLinkForPath(std::string_view path) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return signedLinkForPathAt(path, std::chrono::duration<double>(now).count());
}

}  // namespace tarnwick
