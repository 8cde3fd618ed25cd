#include "transfer/http/file_downloader.hpp"

#include <fmt/format.h>

#include "base/platform_log.hpp"
#include "base/standard_streams.hpp"
#include "base/text_rules.hpp"
#include "platform/platform.hpp"
#include "transfer/http/tool_request.hpp"
#include "transfer/signing/dsa_verifier.hpp"

namespace tarnwick {
namespace {

constexpr std::string_view bundleName = "Tarnwick";

LinkMaker always(const std::string& url) {
  return [url] { return Link{.url = url}; };
}

/// 0 when there was no answer.
long statusOf(const HttpResult& result) {
  const auto* const response = std::get_if<HttpResponse>(&result);
  return response != nullptr ? response->status : 0;
}

}  // namespace

std::string DVFileDownloader::constructUserAgentString() const {
  return fmt::format("{}/{} ({}) (Macintosh; Intel Mac OS X {}) ", bundleName, toolVersion_,
                     toolVersion_, platform::operatingSystemVersion());
}

void DVFileDownloader::downloadFileFromSaveToPath(
    const std::string& url, const std::optional<std::filesystem::path>& destination) {
  downloadFileFromWithSignatureFileSaveToPath(url, std::nullopt, destination);
}

void DVFileDownloader::downloadFileFromWithSignatureFileSaveToPath(
    const std::string& url, const std::optional<std::string>& signatureUrl,
    const std::optional<std::filesystem::path>& destination) {
  downloadFileFromWithSignatureFileSaveToPath(
      always(url), always(signatureUrl.value_or(url + ".signature")), destination);
}

void DVFileDownloader::downloadFileFromWithSignatureFileSaveToPath(
    const LinkMaker& makeFile, const LinkMaker& makeSignature,
    const std::optional<std::filesystem::path>& destination) {
  const Link fileLink = makeFile();
  if (headerOnly_) {
    requestHeaderOnly(requestFor(fileLink.url));
    return;
  }
  const HttpResult file = fetchFile(fileLink, destination);
  if (downloadFailed_) return;
  if (!verifyWithSignature_) {
    logUnlessFound(fileLink, file);
    return;
  }

  const Link signatureLink = makeSignature();
  const HttpResult answer = http_.sendSynchronousRequest(requestFor(signatureLink.url));
  if (destination && isSigned(*destination, answer)) return;
  // A bad signature is often just an error page.
  logUnlessFound(fileLink, file);
  logUnlessFound(signatureLink, answer);
  platformLog("Download failed sig check");
  downloadFailed_ = true;
}

HttpRequest DVFileDownloader::requestFor(const std::string& url) const {
  return {.url = url,
          .userAgent = userAgentString_ ? *userAgentString_ : constructUserAgentString(),
          .idleTimeout = downloadIdleTimeout};
}

void DVFileDownloader::requestHeaderOnly(HttpRequest request) {
  request.method = "HEAD";
  httpResponseCode_ = statusOf(http_.sendSynchronousRequest(request));
}

HttpResult DVFileDownloader::fetchFile(const Link& link,
                                       const std::optional<std::filesystem::path>& destination) {
  const std::string name = destination ? destination->filename().string() : std::string();
  displayFilename_ = replaced(name, "_download", "");
  progressName_ = replaced(displayFilename_, ".zip", "");
  isComplete_ = false;
  receivedContentLength_ = 0;
  totalContentLength_ = 0;
  HttpResult result = http_.download(
      requestFor(link.url), destination,
      {.didReceiveResponse =
           [this](const HttpResponse& response) { downloadDidReceiveResponse(response); },
       .didReceiveDataOfLength =
           [this](std::uint64_t length) { downloadDidReceiveDataOfLength(length); }});
  if (const auto* const error = std::get_if<HttpError>(&result)) {
    downloadDidFailWithError({.description = error->description,
                              .url = link.shown(error->url),
                              .requestWasMade = error->requestWasMade});
  } else {
    downloadDidFinish();
  }
  return result;
}

bool DVFileDownloader::isSigned(const std::filesystem::path& file,
                                const HttpResult& signature) const {
  const std::optional<std::string> text = textIn(signature);
  return text && publicKey_ && fileIsSigned(file, *text, *publicKey_);
}

void DVFileDownloader::downloadDidReceiveResponse(const HttpResponse& response) {
  const std::int64_t length = parseInteger(response.header("content-length").value_or(""));
  totalContentLength_ = length > 0 ? static_cast<std::uint64_t>(length) : 0;
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
  if (!error.requestWasMade) {
    platformLog(fmt::format("Download failed {}", error.url));
  } else if (!quiet_) {
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
