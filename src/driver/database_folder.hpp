#pragma once

#include <filesystem>
#include <string_view>

#include "driver/run_context.hpp"

namespace tarnwick {

/// A file of this name in `dataDirectory`.
std::filesystem::path inDataDirectory(const RunContext& context, std::string_view name);

/// What may be done in the data directory, from the least to the most.
enum class DataDirectoryUse {
  nothing,   ///< its text is empty, and the working directory is not meant
  files,     ///< a file in it may be named
  commands,  ///< the shell may be given it too: it takes the text as it stands, and that is not the
             ///< root of the file system, however it is written
};
DataDirectoryUse dataDirectoryUse(const RunContext& context);

/// Gives the database folder to "clamav" and sets its modes, and those of the log when one is
/// named.
void fixDatabasePermissions(const RunContext& context);

}  // namespace tarnwick
