#pragma once

#include <filesystem>

#include "driver/run_context.hpp"

namespace tarnwick {

/// The integrity test: whether the scanner, with `database` as its only database, can scan its own
/// executable. False too when it cannot be started.
bool scannerAccepts(const RunContext& context, const std::filesystem::path& database);

/// Moves a tested database over the installed one and gives it to "clamav". There is no instant
/// without an installed database, unless the move fails: then the installed one is deleted and the
/// move tried once more. False when that failed too, and when a loss of power may undo the move.
[[nodiscard]] bool installDatabase(const std::filesystem::path& database,
                                   const std::filesystem::path& installed);

}  // namespace tarnwick
