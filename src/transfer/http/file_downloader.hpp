#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "transfer/http/http_client.hpp"
#include "transfer/http/link.hpp"

namespace tarnwick {

/// Fetches one URL into one file and waits for it, with a progress line on standard output, and
/// can check the file against its publisher's signature. Can instead ask only for the HTTP status.
///
/// `downloadFailed` is never cleared: callers take a fresh downloader for each file, or rely on
/// one failure standing for all. The HTTP status of a download is not examined: an error page is
/// kept like any file, and left for the signature or the caller to find out.
///
/// The class is an interface that is kept whole: asking for the status alone, the properties that
/// tell of the progress and the events are there for other callers than this program.
class DVFileDownloader final {
 public:
  /// Without a key no signature verifies.
  DVFileDownloader(HttpClient& http, std::string_view toolVersion,
                   std::optional<std::string_view> publicKey = std::nullopt)
      : http_(http), toolVersion_(toolVersion), publicKey_(publicKey) {}

  /// Suppresses the progress lines and the line that tells of a failed transfer.
  void setQuiet(bool quiet) { quiet_ = quiet; }
  /// After a successful download, fetch the signature and verify the file.
  void setVerifyWithSignature(bool verify) { verifyWithSignature_ = verify; }
  void setHeaderOnly(bool headerOnly) { headerOnly_ = headerOnly; }
  /// When absent, constructUserAgentString makes one for each request.
  void setUserAgentString(std::optional<std::string> text) { userAgentString_ = std::move(text); }

  [[nodiscard]] bool downloadFailed() const { return downloadFailed_; }
  [[nodiscard]] bool isComplete() const { return isComplete_; }
  /// Status of the last HEAD request; 0 when there was no response.
  [[nodiscard]] std::int64_t httpResponseCode() const { return httpResponseCode_; }
  [[nodiscard]] std::uint64_t totalContentLength() const { return totalContentLength_; }
  [[nodiscard]] std::uint64_t receivedContentLength() const { return receivedContentLength_; }
  [[nodiscard]] const std::string& displayFilename() const { return displayFilename_; }

  [[nodiscard]] std::string constructUserAgentString() const;

  void downloadFileFromSaveToPath(const std::string& url,
                                  const std::optional<std::filesystem::path>& destination);

  /// Without a destination a download fails as it does if the file cannot be written.
  ///
  /// The signature is fetched from `signatureUrl`, or else from `url` with ".signature" appended.
  /// A file that fails the check stays where it is.
  void downloadFileFromWithSignatureFileSaveToPath(
      const std::string& url, const std::optional<std::string>& signatureUrl,
      const std::optional<std::filesystem::path>& destination);

  /// The same with links that are made when they are needed.
  void downloadFileFromWithSignatureFileSaveToPath(
      const LinkMaker& file, const LinkMaker& signature,
      const std::optional<std::filesystem::path>& destination);

  void downloadDidReceiveResponse(const HttpResponse& response);
  void downloadDidReceiveDataOfLength(std::uint64_t length);
  void downloadDidFailWithError(const HttpError& error);
  void downloadDidFinish();

 private:
  [[nodiscard]] HttpRequest requestFor(const std::string& url) const;
  void requestHeaderOnly(HttpRequest request);
  HttpResult fetchFile(const Link& link, const std::optional<std::filesystem::path>& destination);
  [[nodiscard]] bool isSigned(const std::filesystem::path& file, const HttpResult& signature) const;
  void showProgress(std::uint64_t percentage, char lineEnd) const;

  HttpClient& http_;
  std::string toolVersion_;
  std::optional<std::string_view> publicKey_;
  std::optional<std::string> userAgentString_;
  std::string displayFilename_;
  std::string progressName_;
  std::uint64_t totalContentLength_ = 0;
  std::uint64_t receivedContentLength_ = 0;
  std::int64_t httpResponseCode_ = 0;
  bool isComplete_ = false;
  bool downloadFailed_ = false;
  bool verifyWithSignature_ = false;
  bool quiet_ = false;
  bool headerOnly_ = false;
};

}  // namespace tarnwick
