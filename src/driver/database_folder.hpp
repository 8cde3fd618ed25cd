#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
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

/// The user and the group "clamav"; absent where the machine lacks them.
struct DatabaseOwner {
  std::optional<uid_t> user;
  std::optional<gid_t> group;
};
DatabaseOwner databaseOwner();

/// Removes a folder, or a link to one, that has this name in the data directory. It would count as
/// an installed database, which nothing then replaces.
void removeFolderNamed(const RunContext& context, std::string_view name);

/// Gives the database folder to "clamav" and sets its modes, and those of the log when one is
/// named.
void fixDatabasePermissions(const RunContext& context);

}  // namespace tarnwick
