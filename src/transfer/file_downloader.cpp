#include "transfer/file_downloader.hpp"

#include <fmt/format.h>

#include "base/platform_log.hpp"
#include "base/standard_streams.hpp"
#include "base/text_rules.hpp"
#include "platform/platform.hpp"
#include "settings/vendor_settings.hpp"
#include "transfer/dsa_verifier.hpp"

namespace tarnwick {
namespace {

constexpr std::chrono::seconds downloadIdleTimeout(60);
constexpr std::chrono::milliseconds waitSlice(10);

constexpr std::string_view bundleName = "Tarnwick";

}  // namespace

std::string DVFileDownloader::constructUserAgentString() {
  return fmt::format("{}/{} ({}) (Macintosh; Intel Mac OS X {}) ", bundleName,
                     settings::toolVersion, settings::toolVersion,
                     platform::operatingSystemVersion());
}

void DVFileDownloader::downloadFileFromSaveToPath(const std::string& url,
                                                  const std::filesystem::path& destination) {
  downloadFileFromWithSignatureFileSaveToPath(url, std::nullopt, destination);
}

void DVFileDownloader::downloadFileFromWithSignatureFileSaveToPath(
    const std::string& url, const std::optional<std::string>& signatureUrl,
    const std::filesystem::path& destination) {
  HttpRequest request{
      .url = url,
      .userAgent = userAgentString_ ? *userAgentString_ : constructUserAgentString(),
      .idleTimeout = downloadIdleTimeout,
  };
  if (headerOnly_) {
    requestHeaderOnly(std::move(request));
    return;
  }
  fetchFile(request, destination);
  if (downloadFailed_ || !verifyWithSignature_) return;

  request.url = signatureUrl.value_or(url + ".signature");
  if (fileIsSigned(request, destination)) return;
  platformLog("Download failed sig check");
  downloadFailed_ = true;
}

void DVFileDownloader::requestHeaderOnly(HttpRequest request) {
  request.method = "HEAD";
  const auto result = http_.sendSynchronousRequest(request);
  const auto* const response = std::get_if<HttpResponse>(&result);
  httpResponseCode_ = response != nullptr ? response->status : 0;
}

void DVFileDownloader::fetchFile(const HttpRequest& request,
                                 const std::filesystem::path& destination) {
  displayFilename_ = replaced(destination.filename().string(), "_download", "");
  progressName_ = replaced(displayFilename_, ".zip", "");
  isComplete_ = false;
  receivedContentLength_ = 0;
  totalContentLength_ = 0;
  const auto download = http_.beginDownload(request, destination, *this);
  if (!download) {
    platformLog(fmt::format("Download failed {}", request.url));
    downloadFailed_ = true;
    return;
  }
  while (!isComplete_) download->runFor(waitSlice);
}

bool DVFileDownloader::fileIsSigned(const HttpRequest& signatureRequest,
                                    const std::filesystem::path& file) {
  return DVSUDSAVerifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
      file, http_.fetchText(signatureRequest), settings::vendorPublicKey);
}

void DVFileDownloader::downloadDidReceiveResponse(const HttpResponse& response) {
  totalContentLength_ =
      static_cast<std::uint64_t>(parseInteger(response.header("content-length").value_or("")));
  receivedContentLength_ = 0;
}

void DVFileDownloader::downloadDidReceiveDataOfLength(std::uint64_t length) {
  receivedContentLength_ += length;
  if (quiet_) return;
  const double share = totalContentLength_ == 0 ? 0
                                                : static_cast<double>(receivedContentLength_) /
                                                      static_cast<double>(totalContentLength_);
  showProgress(static_cast<std::uint64_t>(share * 100), '\r');
}

void DVFileDownloader::downloadDidFailWithError(const HttpError& error) {
  if (!quiet_) {
    platformLog(fmt::format("Download failed! Error - {} {}", error.description, error.url));
  }
  downloadFailed_ = true;
  isComplete_ = true;
}

void DVFileDownloader::downloadDidFinish() {
  if (!quiet_) showProgress(100, '\n');
  isComplete_ = true;
}

// A carriage return at its end lets each line overwrite the one before on a terminal.
void DVFileDownloader::showProgress(std::uint64_t percentage, char lineEnd) const {
  writeToStandardOutput(
      fmt::format("Downloading {} [{:3}%]{}", progressName_, percentage, lineEnd));
}

}  // namespace tarnwick
