#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "driver/exit_status.hpp"
#include "driver/run_context.hpp"
#include "transfer/http/http_client.hpp"

/// ClamAV's databases fetched whole from the mirror, without `freshclam`.
namespace tarnwick {

/// In the order in which they are always gone through.
inline constexpr std::array<std::string_view, 3> databaseNames{"main", "daily", "bytecode"};

/// Removes the downloads that an earlier run left in the data directory: one that was killed, or
/// one whose download had version 0.
void removeUnfinishedDownloads(const RunContext& context);

/// A version for each of databaseNames.
using RecordedVersions = std::array<std::int64_t, databaseNames.size()>;

/// The versions in a mirror's version record; none when it has too few fields.
std::optional<RecordedVersions> recordedVersions(std::string_view record);

/// The version in what `sigtool -i` printed; -1 when it named none, or an error.
std::int64_t versionInReport(std::string_view report);

/// Whether the data directory holds the database, as a ".cvd" or as a ".cld".
bool databaseIsInstalled(const RunContext& context, std::string_view name);

/// The version that `sigtool` reads in a file of the data directory; -1 when it reads none.
std::int64_t sigtoolVersion(const RunContext& context, const std::string& fileName);

/// Whether the installed database is older than `available`, or missing. Prints what it compared.
bool databaseNeedsUpdate(const RunContext& context, std::string_view name, std::int64_t available);

/// Replaces a database by the mirror's whole ".cvd". What was installed is removed first.
void downloadFullDatabase(const RunContext& context, HttpClient& http, std::string_view name);

/// Brings every database up to the mirror's version record by whole downloads. Returns the
/// exit status that the run reports for the result; none without a usable record.
[[nodiscard]] std::optional<ExitStatus> updateByVersionRecord(const RunContext& context,
                                                              HttpClient& http);

}  // namespace tarnwick
