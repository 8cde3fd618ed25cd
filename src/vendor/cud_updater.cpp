#include "vendor/cud_updater.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "base/platform_log.hpp"
#include "base/text_rules.hpp"
#include "driver/commands.hpp"
#include "driver/console.hpp"
#include "driver/database_folder.hpp"
#include "transfer/http/file_downloader.hpp"
#include "transfer/http/tool_request.hpp"
#include "transfer/signing/file_hash.hpp"
#include "vendor/container_archive.hpp"
#include "vendor/cud_workplace.hpp"
#include "vendor/database_header.hpp"
#include "vendor/database_install.hpp"
#include "vendor/signed_links.hpp"
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

/// A run unpacks this container and installs a whole one here even if `dataDirectory` is another
/// folder.
std::string installedContainer() {
  return fmt::format("{}/{}", fixedDatabaseDirectory(), containerName);
}

struct Versions {
  std::int64_t local = 0;
  std::int64_t available = 0;
};

enum class Outcome { upToDate, installed, wholeContainerNeeded };

std::string scriptedPath(std::string_view name) {
  return fmt::format("/VestRUM2/Scripted/{}", name);
}

DVFileDownloader verifyingDownloader(const RunContext& context, const VendorSession& session,
                                     bool quiet) {
  DVFileDownloader downloader(session.http, context.toolVersion, session.publicKey);
  downloader.setUserAgentString(session.userAgent);
  downloader.setQuiet(quiet);
  downloader.setVerifyWithSignature(true);
  return downloader;
}

/// Fetches and verifies one file. Each link is made immediately before its request.
void downloadScripted(DVFileDownloader& downloader, std::string_view name,
                      const std::optional<fs::path>& file) {
  const std::string path = scriptedPath(name);
  downloader.downloadFileFromWithSignatureFileSaveToPath(signedLinksTo(path),
                                                         signedLinksTo(path + ".signature"), file);
}

/// 0 if the server gives no version.
std::int64_t fetchAvailableVersion(const RunContext& context, const VendorSession& session) {
  printMessage(context, "Downloading Defs version number");
  const Link link = signedLinksTo(scriptedPath("VestRUM-db-version.txt"))();
  const auto result = session.http.sendSynchronousRequest(toolRequest(link.url, session.userAgent));
  logUnlessFound(link, result);
  if (const auto* const error = std::get_if<HttpError>(&result)) {
    printMessage(context, "Failed to get available defs version number: {}", error->description);
    return 0;
  }
  // The HTTP status does not matter: an error page can at worst name a script that does not exist.
  const auto body = textIn(result);
  const std::string_view text = body ? trimmed(*body) : std::string_view();
  if (text.empty()) return 0;
  printMessage(context, "version number {}", shownText(text));
  return versionInText(text);
}

[[nodiscard]] bool makeWorkplace(const RunContext& context, const VendorSession& session,
                                 const std::optional<CudWorkplace>& work) {
  printMessage(context, "currentTempDir: {}",
               (session.temporaryDirectory.shownPath / cudWorkFolder).string());
  if (work) work->remove();
  std::error_code error;
  if (work && fs::create_directories(work->directory, error)) return true;
  printMessage(context, "Couldn't create temp dir");
  return false;
}

/// The installed container has no signature, and `clamav` can change it. A script in it must be out
/// of the way when applyScripts collects the fetched scripts, which are verified, by their names.
[[nodiscard]] bool setOwnScriptsAside(const CudWorkplace& work) {
  const auto names = namesIn(work.directory);
  std::error_code error;
  if (!names || !fs::create_directory(work.aside, error)) return false;
  for (const std::string& name : *names) {
    if (!name.ends_with(".script")) continue;
    fs::rename(work.directory / name, work.aside / name, error);
    if (error) return false;
  }
  return true;
}

/// The new archive contains these scripts again, unless a fetched script has the same name.
void putOwnScriptsBack(const CudWorkplace& work) {
  std::error_code ignored;
  for (const std::string& name : namesIn(work.aside).value_or(std::vector<std::string>{})) {
    if (fileExists(work.directory / name)) continue;
    fs::rename(work.aside / name, work.directory / name, ignored);
  }
  removeTree(work.aside);
}

[[nodiscard]] bool unpackContainer(const RunContext& context, const CudWorkplace& work) {
  const ProgramResult unpacked =
      runProgram({.executable = sigtoolPath(),
                  .arguments = {fmt::format("--unpack={}", installedContainer())},
                  .workingDirectory = work.directory});
  if (unpacked.status.isSuccess() && setOwnScriptsAside(work)) return true;
  printMessage(context, "Couldn't unpack cud file");
  return false;
}

bool fetchScripts(const RunContext& context, const VendorSession& session, const Versions& versions,
                  const CudWorkplace& work) {
  DVFileDownloader downloader = verifyingDownloader(context, session, true);
  const auto missing = static_cast<double>(versions.available - versions.local);
  for (std::int64_t fetched = 0; fetched < versions.available - versions.local;) {
    const std::string name = fmt::format("VestRUM-{}.script", versions.local + fetched + 1);
    downloadScripted(downloader, name, work.directory / name);
    if (downloader.downloadFailed()) {
      printMessage(context, "Failed to download and verify {}", name);
      printMessage(context, "Processing updates…");
      return false;
    }
    ++fetched;
    const double percentage = static_cast<double>(fetched) / missing * 100.0;
    printMessage(context, "Downloading {} [{:3}%]", name, static_cast<int>(percentage));
  }
  printMessage(context, "Processing updates…");
  return true;
}

[[nodiscard]] bool applyScripts(const CudWorkplace& work) {
  // Copied, not moved: the new archive contains the scripts too.
  runShellCommand(fmt::format("mkdir {0} && cp {1}/*.script {0}/", work.scripts.string(),
                              work.directory.string()));
  putOwnScriptsBack(work);
  const ProgramResult applied = runProgram(
      {.executable = sigtoolPath(),
       .arguments = {fmt::format("--run-cdiff={}", work.scripts.string()), "--datadir=."},
       .workingDirectory = work.directory});
  removeTree(work.scripts);
  return applied.status.isSuccess();
}

[[nodiscard]] bool repack(const RunContext& context, const CudWorkplace& work) {
  const bool packed = packFolder(work.directory, work.archive());
  if (!packed) printMessage(context, "Repackage failed");
  return packed;
}

[[nodiscard]] bool writeContainer(const RunContext& context, const CudWorkplace& work) {
  const auto md5Hash = FileHash::md5HashOfFileAtPath(work.archive());
  if (!md5Hash) {
    printMessage(context, "Couldn't generate checksum of new cud file");
    return false;
  }
  const auto line = readDatabaseHeader(context, (work.directory / "VestRUM.info").string());
  const std::string header = line ? headerWithHash(*line, *md5Hash) : "";
  const auto join = joinCommand(header, work.archive(), work.container());
  const bool written = join && runShellCommand(*join).isSuccess();
  if (!written) printMessage(context, "Couldn't write header of new cud file");
  return written;
}

[[nodiscard]] bool testNewContainer(const RunContext& context, const CudWorkplace& work) {
  if (scannerAccepts(context, work.container())) return true;
  printMessage(context, "DB integrity check failed. Deleting the new VestRUM.cud file.");
  return false;
}

[[nodiscard]] bool installNewContainer(const RunContext& context, const CudWorkplace& work) {
  printMessage(context, "DB integrity check is sound. Move VestRUM.cud into place");
  const auto failure = installDatabase(work.container(), inDataDirectory(context, containerName));
  if (!failure) return true;
  printMessage(context, "File ({}) couldn't be moved for some reason", work.container().string());
  platformLog(fmt::format("Cannot install {}", describe(*failure)));
  return false;
}

/// The steps from the installed container to the new one. Each step reports its own failure, except
/// applyScripts, whose failure `sigtool` reports.
[[nodiscard]] bool buildAndInstall(const RunContext& context, const VendorSession& session,
                                   const Versions& versions, const CudWorkplace& work) {
  if (!unpackContainer(context, work)) return false;
  if (!fetchScripts(context, session, versions, work)) return false;
  if (!applyScripts(work)) return false;
  if (!repack(context, work)) return false;
  if (!writeContainer(context, work)) return false;
  if (!testNewContainer(context, work)) return false;
  return installNewContainer(context, work);
}

/// Sets each version that it learns.
Outcome tryIncrementalUpdate(const RunContext& context, const VendorSession& session,
                             const std::optional<CudWorkplace>& work, Versions& versions) {
  if (!fileExists(installedContainer())) return Outcome::wholeContainerNeeded;
  versions.local = databaseVersionOfHeader(readDatabaseHeader(context, std::string(containerName)));
  printMessage(context, "Local version {}", versions.local);
  if (versions.local < 1) return Outcome::wholeContainerNeeded;

  versions.available = fetchAvailableVersion(context, session);
  printMessage(context, "Available version {}", versions.available);
  if (versions.available <= versions.local) {
    printMessage(context, "VestRUM.cud file is up-to-date");
    return Outcome::upToDate;
  }

  if (!makeWorkplace(context, session, work)) return Outcome::wholeContainerNeeded;
  const bool installed = buildAndInstall(context, session, versions, *work);
  work->remove();
  return installed ? Outcome::installed : Outcome::wholeContainerNeeded;
}

[[nodiscard]] bool fetchWholeContainer(const RunContext& context, const VendorSession& session,
                                       const std::optional<CudWorkplace>& work) {
  DVFileDownloader downloader = verifyingDownloader(context, session, context.quietMode);
  std::error_code ignored;
  if (work) fs::create_directories(work->directory, ignored);
  downloadScripted(downloader, containerName,
                   work ? std::optional(work->container()) : std::nullopt);
  if (!downloader.downloadFailed()) return true;
  printMessage(context, "Failed to download and/or verify VestRUM.cud");
  return false;
}

/// A signature does not cover the version, so a server can pass an old container off as the latest.
void logIfOlder(std::int64_t version, std::int64_t local) {
  if (version >= local) return;
  platformLog(
      fmt::format("The whole VestRUM.cud (version {}) is older than the installed one "
                  "(version {}), which it replaces",
                  version, local));
}

[[nodiscard]] bool installWholeContainer(const RunContext& context, const CudWorkplace& work,
                                         std::int64_t local) {
  if (!scannerAccepts(context, work.container())) {
    printMessage(context,
                 "VestRUM.cud DB integrity check failed. Deleting the newly downloaded file");
    return false;
  }
  const std::int64_t version =
      databaseVersionOfHeader(readDatabaseHeader(context, work.container().string()));
  printMessage(context, "VestRUM.cud (version {}) DB integrity is sound. Moving into place.",
               version);
  logIfOlder(version, local);
  if (const auto failure = installDatabase(work.container(), installedContainer())) {
    printMessage(context, "File ({}) couldn't be moved", work.container().string());
    platformLog(fmt::format("Cannot install {}", describe(*failure)));
  }
  // A container that passed its test counts as installed even if the move failed.
  return true;
}

[[nodiscard]] bool updateByWholeContainer(const RunContext& context, const VendorSession& session,
                                          const std::optional<CudWorkplace>& work,
                                          std::int64_t local) {
  // A quiet run does not log this line either. Its own line feed makes an empty line.
  if (!context.quietMode) printMessage(context, "Need to download the full VestRUM.cud\n");
  const bool installed = fetchWholeContainer(context, session, work) && work &&
                         installWholeContainer(context, *work, local);
  if (work) work->remove();
  return installed;
}

}  // namespace

std::int64_t versionInText(std::string_view text) {
  const std::vector<std::string_view> fields = split(text, ':');
  return fields.size() > 1 ? parseInteger(fields[1]) : 0;
}

bool updateIncrementalDatabase(const RunContext& context, const VendorSession& session) {
  const std::optional<CudWorkplace> work = workplaceOf(session);
  Versions versions;
  switch (tryIncrementalUpdate(context, session, work, versions)) {
    case Outcome::upToDate:
      return false;
    case Outcome::installed:
      return true;
    case Outcome::wholeContainerNeeded:
      break;
  }
  return updateByWholeContainer(context, session, work, versions.local);
}

void removeContainerLeftovers(const VendorSession& session) {
  if (const auto work = workplaceOf(session)) work->remove();
}

}  // namespace tarnwick
