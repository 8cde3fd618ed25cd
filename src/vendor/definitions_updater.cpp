#include "vendor/definitions_updater.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <string_view>

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
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

constexpr long notFound = 404;

/// One vendor file on its way in.
struct Item {
  std::string name;      ///< without "Vestrum."; loses its ".zip" when it is unpacked
  std::string baseName;  ///< without any ".zip"
  fs::path temporaryFile;

  [[nodiscard]] std::string fileName() const { return fmt::format("Vestrum.{}", name); }
  [[nodiscard]] std::string baseFileName() const { return fmt::format("Vestrum.{}", baseName); }
  [[nodiscard]] std::string stateKey() const { return fmt::format("{}-Last-Modified", baseName); }
  [[nodiscard]] std::string url() const {
    return fmt::format("https://{}/VestRUM2/{}", settings::contentHost, fileName());
  }
};

/// The server's answer to the HEAD request; status 0 stands for no answer.
struct Published {
  long status = 0;
  std::optional<std::string> lastModified;
  std::int64_t contentLength = 0;
};

/// None where it cannot be told, which is not the same as an empty file.
std::optional<std::uintmax_t> sizeOf(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? std::nullopt : std::optional(size);
}

bool isMissing(const fs::path& path) {
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() == fs::file_type::not_found;
}

Published askServer(const VendorSession& session, const Item& item) {
  HttpRequest request = toolRequest(item.url(), session.userAgent);
  request.method = "HEAD";
  const auto result = session.http.sendSynchronousRequest(request);
  const auto* const response = std::get_if<HttpResponse>(&result);
  // A vendor need not have the file.
  if (response == nullptr || response->status != notFound) logUnlessFound({item.url()}, result);
  if (response == nullptr) return {};
  return {.status = response->status,
          .lastModified = response->header("last-modified"),
          .contentLength = parseInteger(response->header("content-length").value_or(""))};
}

bool isUpToDate(const RunContext& context, const Item& item, const Published& published,
                const std::optional<std::string>& storedLastModified) {
  if (!storedLastModified || published.lastModified != storedLastModified) return false;
  const bool installed = fileExists(inDataDirectory(context, item.fileName())) ||
                         fileExists(inDataDirectory(context, item.baseFileName()));
  return installed || published.contentLength <= 0;
}

/// A failed download is not looked at: it shows up as a file without a valid signature.
void download(const RunContext& context, const VendorSession& session, const Item& item) {
  DVFileDownloader downloader(session.http, context.toolVersion);
  downloader.setUserAgentString(session.userAgent);
  downloader.setQuiet(context.quietMode);
  downloader.downloadFileFromSaveToPath(item.url(), item.temporaryFile);
}

/// False when the archive could not be unpacked without complaint: a member may be missing then.
bool unzip(Item& item) {
  const fs::path archive = item.temporaryFile;
  item.temporaryFile = replaced(archive.string(), ".zip", "");
  item.name = item.baseName;
  // What a killed run left there must not pass for what the archive holds.
  if (item.temporaryFile != archive) removeTree(item.temporaryFile);
  const ExitStatus status = runShellCommand(platform::unzipCommand(archive, archive.parent_path()));
  runShellCommand(fmt::format("rm {}", archive.string()));
  return status.isSuccess();
}

/// Unpacks what is zipped. The size of what there is to install; none where that cannot be told.
std::optional<std::uintmax_t> unpackedSize(Item& item) {
  if (!item.name.ends_with("zip")) return sizeOf(item.temporaryFile);
  if (!unzip(item)) return std::nullopt;
  // An archive without the file withdraws it, as an empty file does.
  return isMissing(item.temporaryFile) ? 0 : sizeOf(item.temporaryFile);
}

void rejectFile(const RunContext& context, const Item& item) {
  printMessage(context, "DB integrity check failed. Deleting the new Vestrum.{} file.", item.name);
  removeTree(item.temporaryFile);
}

bool installFile(const RunContext& context, const Item& item, bool ignoreIntegrity) {
  const bool sound = scannerAccepts(context, item.temporaryFile);
  if (!sound && !ignoreIntegrity) {
    rejectFile(context, item);
    return false;
  }
  printMessage(context, "DB integrity check is sound. Move Vestrum.{} into place", item.name);
  if (installDatabase(item.temporaryFile, inDataDirectory(context, item.fileName()))) return true;
  printMessage(context, "File ({}) couldn't be moved for some reason", item.temporaryFile.string());
  removeTree(item.temporaryFile);
  return false;
}

/// An empty published file is the vendor's way of withdrawing it.
void withdrawFile(const RunContext& context, const Item& item) {
  printMessage(context,
               "Downloaded file is deliberately empty, delete Vestrum.{} from defs db directory.",
               item.name);
  removeTree(item.temporaryFile);
  removeTree(inDataDirectory(context, item.fileName()));
}

/// Writes the signature's copy. The old one makes room for it where it must, as it goes anyway.
bool keepSignature(const RunContext& context, const Item& item, std::string_view signature) {
  const fs::path copy = inDataDirectory(context, item.fileName() + ".signature");
  auto failure = writeFileWhole(copy, signature, 0644);
  if (failure && !failure->isInPlace) {
    removeTree(copy);
    failure = writeFileWhole(copy, signature, 0644);
  }
  if (failure) platformLog(fmt::format("Cannot write {}", describe(failure->cause)));
  return !failure;
}

/// What was done to an installed file, and so what is to be remembered of it.
enum class Change {
  none,       ///< what was remembered before
  complete,   ///< the date under which it was published
  halfAPair,  ///< nothing, so that the next run fetches it again
};

/// Fetches, checks and installs or withdraws the file.
Change replaceFile(const RunContext& context, const VendorSession& session, Item item) {
  download(context, session, item);
  const Link signatureLink{.url = item.url() + ".signature"};
  const HttpResult answer =
      session.http.sendSynchronousRequest(toolRequest(signatureLink.url, session.userAgent));
  const std::optional<std::string> signature = textIn(answer);
  const bool valid = DVSUDSAVerifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
      item.temporaryFile, signature, session.publicKey);
  const std::optional<std::uintmax_t> downloaded = sizeOf(item.temporaryFile);
  if (!valid || !signature || !downloaded) {
    logUnlessFound(signatureLink, answer);
    printMessage(context, "Vestrum.{} definitions file is not valid. Delete it.", item.name);
    removeTree(item.temporaryFile);
    return Change::none;
  }
  printMessage(context, "Vestrum.{} is valid and has file size: {} bytes", item.name, *downloaded);
  const std::optional<std::uintmax_t> size = unpackedSize(item);
  if (!size) {
    rejectFile(context, item);
    return Change::none;
  }
  const bool ignoreIntegrity = !scannerDecidesOn(item.name);
  const bool pairIsWhole = !ignoreIntegrity || keepSignature(context, item, *signature);
  if (*size > 0 && !installFile(context, item, ignoreIntegrity)) return Change::none;
  if (*size == 0) withdrawFile(context, item);
  return pairIsWhole ? Change::complete : Change::halfAPair;
}

void logIfUndated(const Item& item, const Published& published) {
  if (published.lastModified) return;
  platformLog(fmt::format("{} has no Last-Modified, so that every run installs it", item.url()));
}

void sayNothingFetched(const RunContext& context, const Item& item, long status) {
  if (status == notFound) {
    printMessage(context, "Nothing to download for Vestrum.{}", item.name);
  } else {
    printMessage(context, "Error occurred downloading Vestrum.{}", item.name);
  }
}

}  // namespace

void updateVendorFile(RunContext& context, const VendorSession& session, std::string item,
                      const std::optional<std::string>& storedLastModified, UpdateState& state) {
  const Item file{.name = item,
                  .baseName = replaced(item, ".zip", ""),
                  .temporaryFile = session.temporaryDirectory / fmt::format("Vestrum.{}", item)};
  const Published published = askServer(session, file);
  std::optional<std::string> lastModified = storedLastModified;
  if (published.status != 200) {
    sayNothingFetched(context, file, published.status);
  } else if (isUpToDate(context, file, published, storedLastModified)) {
    printMessage(context, "Vestrum.{} is already up to date.", file.baseName);
  } else if (const Change change = replaceFile(context, session, file); change != Change::none) {
    logIfUndated(file, published);
    lastModified = change == Change::complete ? published.lastModified : std::nullopt;
    context.definitionsChanged = true;
  }
  state.record(file.stateKey(), lastModified);
}

}  // namespace tarnwick
