#pragma once

#include <filesystem>
#include <optional>

#include "base/file_failure.hpp"
#include "driver/run_context.hpp"

namespace tarnwick {

/// The integrity test: whether the scanner, with `database` as its only database, can scan its own
/// executable. False too if the scanner cannot be started.
[[nodiscard]] bool scannerAccepts(const RunContext& context, const std::filesystem::path& database);

/// Moves a tested database over the installed one and gives it to `clamav`. If the move fails,
/// deletes the installed database, which may make room on the disk, and tries once more; otherwise
/// there is no instant without an installed database. None on success. A failure is returned too
/// if the new database is in place but a loss of power may undo that.
[[nodiscard]] std::optional<FileFailure> installDatabase(const std::filesystem::path& database,
                                                         const std::filesystem::path& installed);

}  // namespace tarnwick
