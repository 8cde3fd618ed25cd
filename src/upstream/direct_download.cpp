#include "upstream/direct_download.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <vector>

#include "base/durable_file.hpp"
#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "base/text_rules.hpp"
#include "driver/commands.hpp"
#include "driver/console.hpp"
#include "driver/database_folder.hpp"
#include "transfer/http/file_downloader.hpp"
#include "transfer/http/tool_request.hpp"

namespace tarnwick {
namespace {

constexpr ExitStatus stillOutOfDate = ExitStatus::exited(234);
constexpr ExitStatus upToDate = ExitStatus::exited(1);

/// The record's fields with the versions, in the order of databaseNames.
constexpr std::array<std::size_t, 3> recordFields{1, 2, 7};
constexpr std::size_t fewestRecordFields = 8;

std::string containerOf(std::string_view name) {
  return fmt::format("{}.cvd", name);
}
std::string incrementalContainerOf(std::string_view name) {
  return fmt::format("{}.cld", name);
}

std::string downloadOf(std::string_view name) {
  return fmt::format("{}.cvd_download", name);
}

bool isPresent(const RunContext& context, const std::string& fileName) {
  return fileExists(inDataDirectory(context, fileName));
}

/// An installed file of a database, and the version that `sigtool` reads in it.
struct InstalledFile {
  std::string name;
  std::int64_t version;
};

/// The ".cvd" before the ".cld".
std::vector<InstalledFile> installedFilesOf(const RunContext& context, std::string_view name) {
  std::vector<InstalledFile> files;
  for (const std::string& file : {containerOf(name), incrementalContainerOf(name)}) {
    if (isPresent(context, file)) files.push_back({file, sigtoolVersion(context, file)});
  }
  return files;
}

void replaceOutdated(const RunContext& context, HttpClient& http,
                     const RecordedVersions& versions) {
  for (std::size_t i = 0; i < databaseNames.size(); ++i) {
    if (compareWithAvailable(context, databaseNames[i], versions[i])) {
      downloadFullDatabase(context, http, databaseNames[i]);
    }
  }
}

/// Compares databases until one is missing or older than available. True if there is one.
bool compareUntilOutdated(const RunContext& context, const RecordedVersions& versions) {
  for (std::size_t i = 0; i < databaseNames.size(); ++i) {
    if (compareWithAvailable(context, databaseNames[i], versions[i])) return true;
  }
  return false;
}

/// Empty if the mirror did not give one.
std::string fetchVersionRecord(const RunContext& context, HttpClient& http) {
  const std::string userAgent = toolUserAgent(context.toolVersion);
  printMessage(context, "Downloading Defs version number");
  const Link link{.url = fmt::format("https://{}/dns.txt", context.mirrorHost)};
  const HttpResult answer = http.sendSynchronousRequest(toolRequest(link.url, userAgent));
  logUnlessFound(link, answer);
  return textIn(answer).value_or("");
}

}  // namespace

void removeUnfinishedDownloads(const RunContext& context) {
  if (dataDirectoryUse(context) == DataDirectoryUse::nothing) return;
  for (const std::string_view name : databaseNames) {
    ::unlink(inDataDirectory(context, downloadOf(name)).c_str());
  }
}

std::optional<RecordedVersions> recordedVersions(std::string_view record) {
  const std::vector<std::string_view> fields = split(record, ':');
  if (fields.size() < fewestRecordFields) return std::nullopt;
  RecordedVersions versions{};
  std::ranges::transform(recordFields, versions.begin(),
                         [&fields](std::size_t field) { return parseInteger(fields[field]); });
  return versions;
}

std::int64_t versionInReport(std::string_view report) {
  std::int64_t version = -1;
  for (const std::string_view line : split(report, '\n')) {
    // Removes exactly this label, so a line "Version:7" without the blank gives 0.
    if (line.starts_with("Version")) version = parseInteger(replaced(line, "Version: ", ""));
    if (line.starts_with("ERROR: ")) return -1;
  }
  return version;
}

bool databaseIsInstalled(const RunContext& context, std::string_view name) {
  return isPresent(context, containerOf(name)) || isPresent(context, incrementalContainerOf(name));
}

std::int64_t sigtoolVersion(const RunContext& context, const std::string& fileName) {
  const std::filesystem::path file = inDataDirectory(context, fileName);
  // `sigtool`, and so the run, would wait for the writer of a FIFO in a database's place.
  std::error_code ignored;
  if (fileExists(file) && !std::filesystem::is_regular_file(file, ignored)) return -1;
  const ProgramResult result = runProgram({.executable = sigtoolPath(),
                                           .arguments = {"-i", file.string()},
                                           .output = ProgramOutput::captured});
  const std::optional<std::string> text = textFromUtf8(result.output);
  return text ? versionInReport(*text) : -1;
}

bool compareWithAvailable(const RunContext& context, std::string_view name,
                          std::int64_t available) {
  const std::vector<InstalledFile> files = installedFilesOf(context, name);
  for (const InstalledFile& file : files) {
    printMessage(context, "{} installed: {}, available: {}", file.name, file.version, available);
  }
  // If both files exist, the ".cld" decides, even if it is older.
  return files.empty() || files.back().version < available;
}

void downloadFullDatabase(const RunContext& context, HttpClient& http, std::string_view name) {
  const std::string container = containerOf(name);
  const std::string download = downloadOf(name);
  removeTree(inDataDirectory(context, container));
  removeTree(inDataDirectory(context, incrementalContainerOf(name)));
  // A download that a killed run left there must not pass for this one.
  removeTree(inDataDirectory(context, download));
  DVFileDownloader downloader(http, context.toolVersion);
  downloader.downloadFileFromSaveToPath(fmt::format("https://{}/{}", context.mirrorHost, container),
                                        inDataDirectory(context, download));
  // A file that `sigtool` rejects has version -1 and is installed: `freshclam` judges it next.
  if (sigtoolVersion(context, download) == 0) return;
  // Reported as downloaded even if the move fails: `freshclam` fetches what is missing.
  static_cast<void>(moveFileIntoPlace(inDataDirectory(context, download),
                                      inDataDirectory(context, container), {}));
  printMessage(context, "Downloaded {}.cvd from {}", name, context.mirrorHost);
}

std::optional<ExitStatus> updateByVersionRecord(const RunContext& context, HttpClient& http) {
  const std::string record = fetchVersionRecord(context, http);
  const std::optional<RecordedVersions> versions = recordedVersions(record);
  if (!versions) {
    printMessage(context, "no defs version number available on {}", context.mirrorHost);
    return std::nullopt;
  }
  printMessage(context, "version number {}", shownText(record));
  replaceOutdated(context, http, *versions);
  return compareUntilOutdated(context, *versions) ? stillOutOfDate : upToDate;
}

}  // namespace tarnwick
