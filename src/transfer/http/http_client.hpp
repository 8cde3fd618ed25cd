#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/http/http_response.hpp"

namespace tarnwick {

struct HttpRequest {
  std::string url;
  std::string userAgent;
  /// The transfer fails when nothing at all arrives for so long, be it a name, a connection, a part
  /// of the handshake or a part of the answer.
  std::chrono::milliseconds idleTimeout;
  std::string method = "GET";  ///< or "HEAD"

  // What only the publishing kit asks for.
  /// Where to connect instead, as curl's --connect-to takes it.
  std::vector<std::string> connectTo = {};
  std::string authorities = {};  ///< a PEM file in the place of the system's authorities
  std::optional<std::chrono::milliseconds> totalTimeout = {};
  std::optional<std::uint64_t> largestBody = {};  ///< of a text, instead of `largestText`
  bool http2 = false;                             ///< where the server speaks it
};

/// What is told of a download on its way: its response, once, then the size of each piece.
struct DownloadProgress {
  std::function<void(const HttpResponse&)> didReceiveResponse;
  std::function<void(std::uint64_t)> didReceiveDataOfLength;
};

/// The one HTTP client of a run: consecutive requests to a host share a connection, later ones its
/// TLS session. Follows redirects within http and https, checks certificates, uses the user's
/// proxy. Each call waits for its end, which no answer can put off for ever: see AnswerLimits.
class HttpClient {
 public:
  /// Downloads of more than `largestDownload` bytes fail.
  explicit HttpClient(std::uint64_t largestDownload);
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// The whole response. A body beyond the request's limit, or one that is not complete in ten
  /// minutes, is an error.
  HttpResult sendSynchronousRequest(const HttpRequest& request);

  /// Fetches into `destination`, replacing a file there, which is whole when a response is
  /// returned. A failed download leaves nothing of its own. Without a destination, fails as it does
  /// if the file cannot be written.
  HttpResult download(const HttpRequest& request,
                      const std::optional<std::filesystem::path>& destination,
                      const DownloadProgress& progress);

  static constexpr std::uint64_t largestText = 64U << 10U;

 private:
  struct Session;
  std::unique_ptr<Session> session_;
  std::uint64_t largestDownload_;
};

}  // namespace tarnwick
