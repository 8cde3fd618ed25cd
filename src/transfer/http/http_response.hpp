#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tarnwick {

struct HttpResponse {
  long status = 0;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;                            ///< empty for what went into a file
  bool cameOverHttp2 = false;

  /// None when the header is absent or not UTF-8 text. `name` in lower case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;

  /// Takes a header line; of two with one name the later counts. A line without ":" is no header.
  void addHeaderLine(std::string_view line);
};

enum class HttpFailure { other, certificate, name };

/// Why there is no response, or no complete one.
struct HttpError {
  std::string description;     ///< without control characters, though it can quote the server
  std::string url;             ///< the one that failed: after a redirect, where that led to
  bool requestWasMade = true;  ///< false when there was not even the memory for it
  HttpFailure failure = HttpFailure::other;
};

using HttpResult = std::variant<HttpResponse, HttpError>;

/// The body of the response as text, whatever its status. None without a complete response, and
/// for a body that is not UTF-8.
std::optional<std::string> textIn(const HttpResult& result);

}  // namespace tarnwick
