#pragma once

#include <filesystem>
#include <string_view>

#include "driver/run/run_context.hpp"

namespace tarnwick {

/// A file of this name in `dataDirectory`.
std::filesystem::path inDataDirectory(const RunContext& context, std::string_view name);

/// Whether the data directory may be given to a recursive command: the shell would take its text as
/// it stands, and it is not the root of the file system, however that is written.
bool dataDirectoryFitsInCommand(const RunContext& context);

/// Gives the database folder to "clamav" and sets its modes, and those of the log when one is
/// named.
void fixDatabasePermissions(const RunContext& context);

}  // namespace tarnwick
