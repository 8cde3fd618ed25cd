#include "transfer/http/http_response.hpp"

#include <algorithm>

#include "base/text_rules.hpp"

namespace tarnwick {
namespace {

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return result;
}

}  // namespace

std::optional<std::string> HttpResponse::header(std::string_view name) const {
  const auto found = headers.find(std::string(name));
  return found == headers.end() ? std::nullopt : textFromUtf8(found->second);
}

void HttpResponse::addHeaderLine(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  headers.insert_or_assign(lowerCase(line.substr(0, colon)),
                           std::string(stripped(line.substr(colon + 1), " \t\r\n")));
}

std::optional<std::string> textIn(const HttpResult& result) {
  const auto* const response = std::get_if<HttpResponse>(&result);
  return response != nullptr ? textFromUtf8(response->body) : std::nullopt;
}

}  // namespace tarnwick
