#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "driver/exit_status.hpp"
#include "driver/run_context.hpp"
#include "transfer/http/http_client.hpp"

/// Fetches ClamAV's databases whole from the mirror, without `freshclam`.
namespace tarnwick {

/// In the order in which a run processes them.
inline constexpr std::array<std::string_view, 3> databaseNames{"main", "daily", "bytecode"};

/// Removes downloads that an earlier run left in the data directory: because it was killed, or
/// because a download had version 0.
void removeUnfinishedDownloads(const RunContext& context);

/// A version for each of databaseNames.
using RecordedVersions = std::array<std::int64_t, databaseNames.size()>;

/// The versions in a mirror's version record. None if the record has too few fields.
[[nodiscard]] std::optional<RecordedVersions> recordedVersions(std::string_view record);

/// The version in the output of `sigtool -i`; -1 if the output has none, or reports an error.
[[nodiscard]] std::int64_t versionInReport(std::string_view report);

/// Whether the data directory holds the database, as a ".cvd" or as a ".cld".
[[nodiscard]] bool databaseIsInstalled(const RunContext& context, std::string_view name);

/// The version that `sigtool` reads in a file of the data directory; -1 if it reads none, or if
/// the file is not regular.
[[nodiscard]] std::int64_t sigtoolVersion(const RunContext& context, const std::string& fileName);

/// Compares the installed versions of a database with `available`, and prints them. True if the
/// database is older or missing.
[[nodiscard]] bool compareWithAvailable(const RunContext& context, std::string_view name,
                                        std::int64_t available);

/// Removes a database, then installs the mirror's whole ".cvd" unless its version is 0. Prints only
/// that it was downloaded; a failure leaves the database missing.
void downloadFullDatabase(const RunContext& context, HttpClient& http, std::string_view name);

/// Brings every database up to the mirror's version record by whole downloads. Returns the
/// exit status that the run reports for the result; none without a usable record.
[[nodiscard]] std::optional<ExitStatus> updateByVersionRecord(const RunContext& context,
                                                              HttpClient& http);

}  // namespace tarnwick
