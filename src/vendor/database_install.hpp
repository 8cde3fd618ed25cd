#pragma once

#include <filesystem>

#include "driver/run/run_context.hpp"

namespace tarnwick {

/// The integrity test: whether the scanner, with `database` as its only database, can scan its own
/// executable. False too when it cannot be started.
bool scannerAccepts(const RunContext& context, const std::filesystem::path& database);

/// Moves a tested database over the installed one and gives it to "clamav". There is no instant
/// without an installed database; only when the move has failed is the installed one deleted, and
/// the result false.
bool installDatabase(const std::filesystem::path& database, const std::filesystem::path& installed);

}  // namespace tarnwick
