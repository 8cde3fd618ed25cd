#include "vendor/definitions_updater.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <string_view>

#include "base/durable_file.hpp"
#include "base/files.hpp"
#include "base/text_rules.hpp"
#include "driver/run/commands.hpp"
#include "driver/run/console.hpp"
#include "driver/run/database_folder.hpp"
#include "platform/platform.hpp"
#include "settings/vendor_settings.hpp"
#include "transfer/dsa_verifier.hpp"
#include "transfer/file_downloader.hpp"
#include "transfer/tool_request.hpp"
#include "vendor/database_install.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

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

std::uintmax_t sizeOf(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : size;
}

Published askServer(const VendorSession& session, const Item& item) {
  HttpRequest request = toolRequest(item.url(), session.userAgent);
  request.method = "HEAD";
  const auto result = session.http.sendSynchronousRequest(request);
  const auto* const response = std::get_if<HttpResponse>(&result);
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
  DVFileDownloader downloader(session.http);
  downloader.setUserAgentString(session.userAgent);
  downloader.setQuiet(context.quietMode);
  downloader.downloadFileFromSaveToPath(item.url(), item.temporaryFile);
}

void unzip(Item& item) {
  runShellCommand(platform::unzipCommand(item.temporaryFile, item.temporaryFile.parent_path()));
  runShellCommand(fmt::format("rm {}", item.temporaryFile.string()));
  item.temporaryFile = replaced(item.temporaryFile.string(), ".zip", "");
  item.name = item.baseName;
}

bool installFile(const RunContext& context, const Item& item, bool ignoreIntegrity) {
  const bool sound = scannerAccepts(context, item.temporaryFile);
  if (!sound && !ignoreIntegrity) {
    printMessage(context, "DB integrity check failed. Deleting the new Vestrum.{} file.",
                 item.name);
    removeTree(item.temporaryFile);
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

/// Fetches, checks and installs or withdraws the file. True when the installed state changed.
bool replaceFile(const RunContext& context, const VendorSession& session, Item item) {
  download(context, session, item);
  const std::optional<std::string> signature =
      session.http.fetchText(toolRequest(item.url() + ".signature", session.userAgent));
  if (!DVSUDSAVerifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
          item.temporaryFile, signature, settings::vendorPublicKey)) {
    printMessage(context, "Vestrum.{} definitions file is not valid. Delete it.", item.name);
    removeTree(item.temporaryFile);
    return false;
  }
  printMessage(context, "Vestrum.{} is valid and has file size: {} bytes", item.name,
               sizeOf(item.temporaryFile));
  if (item.name.ends_with("zip")) unzip(item);
  // ClamAV does not know the kind of this file, so that its verdict on it means nothing.
  const bool ignoreIntegrity = item.name.ends_with("database");
  if (ignoreIntegrity) {
    writeFileWhole(inDataDirectory(context, item.fileName() + ".signature"), *signature, 0644);
  }
  if (sizeOf(item.temporaryFile) > 0) return installFile(context, item, ignoreIntegrity);
  withdrawFile(context, item);
  return true;
}

void sayNothingFetched(const RunContext& context, const Item& item, long status) {
  if (status == 404) {
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
  } else if (replaceFile(context, session, file)) {
    lastModified = published.lastModified;
    context.definitionsChanged = true;
  }
  state.record(file.stateKey(), lastModified);
}

}  // namespace tarnwick
