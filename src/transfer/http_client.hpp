#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tarnwick {

struct HttpRequest {
  std::string url;
  std::string userAgent;
  /// The transfer fails when nothing at all arrives for so long; there is no limit on the whole.
  std::chrono::seconds idleTimeout{60};
  std::string method = "GET";  ///< or "HEAD"
};

struct HttpResponse {
  long status = 0;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;

  /// None when the header is absent or not UTF-8 text. `name` in lower case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// Why there is no response, or no complete one.
struct HttpError {
  std::string description;
  std::string url;
};

/// What a file download reports, in this order: one response, any number of data events, and
/// then either the failure or the finish. A failure can come at any moment.
class HttpDownloadEvents {
 public:
  HttpDownloadEvents() = default;
  HttpDownloadEvents(const HttpDownloadEvents&) = delete;
  HttpDownloadEvents& operator=(const HttpDownloadEvents&) = delete;
  virtual ~HttpDownloadEvents() = default;
  virtual void downloadDidReceiveResponse(const HttpResponse& response) = 0;
  virtual void downloadDidReceiveDataOfLength(std::uint64_t length) = 0;
  virtual void downloadDidFailWithError(const HttpError& error) = 0;
  virtual void downloadDidFinish() = 0;
};

/// A download under way. The file at its destination is whole when the finish is reported; a
/// failed download leaves nothing of its own there.
class HttpDownload {
 public:
  HttpDownload() = default;
  HttpDownload(const HttpDownload&) = delete;
  HttpDownload& operator=(const HttpDownload&) = delete;
  virtual ~HttpDownload() = default;
  /// Lets the transfer run for at most so long and delivers its events.
  virtual void runFor(std::chrono::milliseconds slice) = 0;
};

/// The one HTTP client of a run: consecutive requests to a host share a connection. Follows
/// redirects within http and https, checks certificates, uses the user's proxy. One transfer at a
/// time.
class HttpClient {
 public:
  HttpClient();
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// Waits for the whole response. Bodies beyond `synchronousBodyLimit` bytes are an error.
  std::variant<HttpResponse, HttpError> sendSynchronousRequest(const HttpRequest& request);

  /// The body of the response as text, whatever its status. None without a complete response, and
  /// for a body that is not UTF-8.
  std::optional<std::string> fetchText(const HttpRequest& request);

  /// Starts to fetch into `destination`, replacing a file there. `events` must outlive the
  /// download, and the download must end before the next request. Null when it can't be made.
  std::unique_ptr<HttpDownload> beginDownload(const HttpRequest& request,
                                              const std::filesystem::path& destination,
                                              HttpDownloadEvents& events);

  static constexpr std::size_t synchronousBodyLimit = 32U << 20U;

 private:
  struct Session;
  std::unique_ptr<Session> session_;
};

}  // namespace tarnwick
