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

/// Where the record holds each database's version, in the order of databaseNames.
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

void bringUpToDate(const RunContext& context, HttpClient& http, const RecordedVersions& versions) {
  for (std::size_t i = 0; i < databaseNames.size(); ++i) {
    if (databaseNeedsUpdate(context, databaseNames[i], versions[i])) {
      downloadFullDatabase(context, http, databaseNames[i]);
    }
  }
}

bool anyStillNeedsUpdate(const RunContext& context, const RecordedVersions& versions) {
  for (std::size_t i = 0; i < databaseNames.size(); ++i) {
    if (databaseNeedsUpdate(context, databaseNames[i], versions[i])) return true;
  }
  return false;
}

/// Empty when the mirror has none.
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
    // Exactly this label is taken off: a line "Version:7" without the blank reads as 0.
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
  // A named pipe in a database's place would keep sigtool, and so the run, waiting for ever.
  std::error_code ignored;
  if (fileExists(file) && !std::filesystem::is_regular_file(file, ignored)) return -1;
  const ProgramResult result = runProgram({.executable = sigtoolPath(),
                                           .arguments = {"-i", file.string()},
                                           .output = ProgramOutput::captured});
  const std::optional<std::string> text = textFromUtf8(result.output);
  return text ? versionInReport(*text) : -1;
}

bool databaseNeedsUpdate(const RunContext& context, std::string_view name, std::int64_t available) {
  if (!databaseIsInstalled(context, name)) return true;
  std::int64_t installed = 0;
  if (isPresent(context, containerOf(name))) {
    installed = sigtoolVersion(context, containerOf(name));
    printMessage(context, "{}.cvd installed: {}, available: {}", name, installed, available);
  }
  // Where both files exist this one decides, even when it is the older.
  if (isPresent(context, incrementalContainerOf(name))) {
    installed = sigtoolVersion(context, incrementalContainerOf(name));
    printMessage(context, "{}.cld installed: {}, available: {}", name, installed, available);
  }
  return installed < available;
}

void downloadFullDatabase(const RunContext& context, HttpClient& http, std::string_view name) {
  const std::string container = containerOf(name);
  const std::string download = downloadOf(name);
  removeTree(inDataDirectory(context, container));
  removeTree(inDataDirectory(context, incrementalContainerOf(name)));
  // What a killed run left of an earlier download must not pass for this one.
  removeTree(inDataDirectory(context, download));
  DVFileDownloader downloader(http, context.toolVersion);
  downloader.downloadFileFromSaveToPath(fmt::format("https://{}/{}", context.mirrorHost, container),
                                        inDataDirectory(context, download));
  // Only a version of exactly 0 keeps a file out; one that sigtool finds fault with goes in.
  if (sigtoolVersion(context, download) == 0) return;
  // Reported either way: "freshclam" judges next what is there, and fetches what is missing.
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
  bringUpToDate(context, http, *versions);
  return anyStillNeedsUpdate(context, *versions) ? stillOutOfDate : upToDate;
}

}  // namespace tarnwick
