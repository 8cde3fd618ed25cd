#include "vendor/item_updater.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "base/durable_file.hpp"
#include "base/file_tree.hpp"
#include "base/platform_log.hpp"
#include "base/text_rules.hpp"
#include "driver/commands.hpp"
#include "driver/console.hpp"
#include "driver/database_folder.hpp"
#include "platform/platform.hpp"
#include "settings/vendor_settings.hpp"
#include "transfer/http/file_downloader.hpp"
#include "transfer/http/tool_request.hpp"
#include "transfer/signing/dsa_verifier.hpp"
#include "vendor/database_install.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

constexpr long found = 200;
constexpr long notFound = 404;

/// The server's answer to the HEAD request.
struct Published {
  long status = 0;
  std::optional<std::string> lastModified;
  std::int64_t contentLength = 0;
};

/// What happened to the installed file, and so which date the run remembers for it.
enum class Change {
  none,       ///< the date that was remembered before
  complete,   ///< the date of the published file
  halfAPair,  ///< none, so that the next run fetches the file again
};

std::string urlOf(const VendorItem& item) {
  return fmt::format("https://{}/VestRUM2/{}", settings::contentHost, item.publishedFileName());
}

/// None on failure, which differs from an empty file.
std::optional<std::uintmax_t> sizeOf(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? std::nullopt : std::optional(size);
}

bool isMissing(const fs::path& path) {
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() == fs::file_type::not_found;
}

/// None if the server did not answer.
std::optional<Published> askServer(const VendorSession& session, const VendorItem& item) {
  HttpRequest request = toolRequest(urlOf(item), session.userAgent);
  request.method = "HEAD";
  const auto result = session.http.sendSynchronousRequest(request);
  const auto* const response = std::get_if<HttpResponse>(&result);
  // A vendor may have withdrawn the file or may never have published one.
  if (response == nullptr || response->status != notFound) logUnlessFound({urlOf(item)}, result);
  if (response == nullptr) return std::nullopt;
  return Published{.status = response->status,
                   .lastModified = response->header("last-modified"),
                   .contentLength = parseInteger(response->header("content-length").value_or(""))};
}

bool isUpToDate(const RunContext& context, const VendorItem& item, const Published& published,
                const std::optional<std::string>& storedLastModified) {
  if (!storedLastModified || published.lastModified != storedLastModified) return false;
  const bool installed = fileExists(inDataDirectory(context, item.publishedFileName())) ||
                         fileExists(inDataDirectory(context, item.fileName()));
  return installed || published.contentLength <= 0;
}

/// Does not report a failed download: the file then has no valid signature.
void download(const RunContext& context, const VendorSession& session, const VendorItem& item,
              const std::optional<fs::path>& file) {
  DVFileDownloader downloader(session.http, context.toolVersion);
  downloader.setUserAgentString(session.userAgent);
  downloader.setQuiet(context.quietMode);
  downloader.downloadFileFromSaveToPath(urlOf(item), file);
}

/// Fetches and checks the signature of a downloaded file. Returns it if it is valid; otherwise
/// reports that and deletes the file.
std::optional<std::string> fetchValidSignature(const RunContext& context,
                                               const VendorSession& session, const VendorItem& item,
                                               const std::optional<fs::path>& file) {
  const Link link{.url = urlOf(item) + ".signature"};
  const HttpResult answer =
      session.http.sendSynchronousRequest(toolRequest(link.url, session.userAgent));
  std::optional<std::string> signature = textIn(answer);
  const bool valid = DVSUDSAVerifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
      file, signature, session.publicKey);
  const auto downloaded = file ? sizeOf(*file) : std::nullopt;
  const std::string name = item.publishedFileName();
  if (!valid || !downloaded) {
    logUnlessFound(link, answer);
    printMessage(context, "{} definitions file is not valid. Delete it.", name);
    if (file) removeTree(*file);
    return std::nullopt;
  }
  printMessage(context, "{} is valid and has file size: {} bytes", name, *downloaded);
  return signature;
}

/// Unpacks an archive beside itself and deletes it. False if `unzip` reported an error: a member
/// may then be missing.
[[nodiscard]] bool unpack(const fs::path& archive, const fs::path& unpacked) {
  // A file that a killed run left there must not pass for the archive's content.
  removeTree(unpacked);
  const ExitStatus status = runShellCommand(platform::unzipCommand(archive, archive.parent_path()));
  runShellCommand(fmt::format("rm {}", archive.string()));
  return status.isSuccess();
}

/// The size of the file to install, which this call unpacks if the item is zipped. None on failure.
std::optional<std::uintmax_t> prepareFile(const VendorItem& item, const fs::path& downloaded,
                                          const fs::path& file) {
  if (!item.zipped) return sizeOf(file);
  if (!unpack(downloaded, file)) return std::nullopt;
  // An archive without the file withdraws the item, as an empty file does.
  return isMissing(file) ? 0 : sizeOf(file);
}

void rejectFile(const RunContext& context, const VendorItem& item, const fs::path& file) {
  printMessage(context, "DB integrity check failed. Deleting the new {} file.", item.fileName());
  removeTree(file);
}

[[nodiscard]] bool installFile(const RunContext& context, const VendorItem& item,
                               const fs::path& file) {
  const bool accepted = scannerAccepts(context, file);
  if (!accepted && item.scannerDecides) {
    rejectFile(context, item, file);
    return false;
  }
  printMessage(context, "DB integrity check is sound. Move {} into place", item.fileName());
  const auto failure = installDatabase(file, inDataDirectory(context, item.fileName()));
  if (!failure) return true;
  printMessage(context, "File ({}) couldn't be moved for some reason", file.string());
  platformLog(fmt::format("Cannot install {}", describe(*failure)));
  removeTree(file);
  return false;
}

/// A vendor withdraws an item by publishing an empty file.
void withdrawFile(const RunContext& context, const VendorItem& item, const fs::path& file) {
  printMessage(context, "Downloaded file is deliberately empty, delete {} from defs db directory.",
               item.fileName());
  removeTree(file);
  removeTree(inDataDirectory(context, item.fileName()));
}

/// Writes the copy of the signature. If that fails, deletes the old copy, which may make room on
/// the disk, and tries once more.
[[nodiscard]] bool keepSignature(const RunContext& context, const VendorItem& item,
                                 std::string_view signature) {
  const fs::path copy = inDataDirectory(context, item.signatureFileName());
  auto failure = writeFileWhole(copy, signature, 0644);
  if (failure && !failure->isInPlace) {
    removeTree(copy);
    failure = writeFileWhole(copy, signature, 0644);
  }
  if (failure) platformLog(fmt::format("Cannot write {}", describe(failure->cause)));
  return !failure;
}

/// Fetches, checks and installs or withdraws the file.
Change replaceFile(const RunContext& context, const VendorSession& session,
                   const VendorItem& item) {
  const std::optional<fs::path> downloaded = session.temporaryFile(item.publishedFileName());
  download(context, session, item, downloaded);
  const auto signature = fetchValidSignature(context, session, item, downloaded);
  if (!signature) return Change::none;
  const fs::path file = downloaded->parent_path() / item.fileName();
  const std::optional<std::uintmax_t> size = prepareFile(item, *downloaded, file);
  if (!size) {
    rejectFile(context, item, file);
    return Change::none;
  }
  const bool pairIsWhole = item.scannerDecides || keepSignature(context, item, *signature);
  if (*size > 0 && !installFile(context, item, file)) return Change::none;
  if (*size == 0) withdrawFile(context, item, file);
  return pairIsWhole ? Change::complete : Change::halfAPair;
}

void logIfUndated(const VendorItem& item, const Published& published) {
  if (published.lastModified) return;
  platformLog(fmt::format("{} has no Last-Modified, so that every run installs it", urlOf(item)));
}

}  // namespace

void updateVendorFile(RunContext& context, const VendorSession& session, const VendorItem& item,
                      const std::optional<std::string>& storedLastModified, UpdateState& state) {
  const std::optional<Published> published = askServer(session, item);
  std::optional<std::string> lastModified = storedLastModified;
  if (published && published->status == notFound) {
    printMessage(context, "Nothing to download for {}", item.publishedFileName());
  } else if (!published || published->status != found) {
    printMessage(context, "Error occurred downloading {}", item.publishedFileName());
  } else if (isUpToDate(context, item, *published, storedLastModified)) {
    printMessage(context, "{} is already up to date.", item.fileName());
  } else if (const Change change = replaceFile(context, session, item); change != Change::none) {
    logIfUndated(item, *published);
    lastModified = change == Change::complete ? published->lastModified : std::nullopt;
    context.definitionsChanged = true;
  }
  state.record(item.stateKey(), lastModified);
}

}  // namespace tarnwick
