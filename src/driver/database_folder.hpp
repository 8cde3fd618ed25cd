#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string_view>

#include "driver/run_context.hpp"

namespace tarnwick {

/// The path of the file with this name in `dataDirectory`.
[[nodiscard]] std::filesystem::path inDataDirectory(const RunContext& context,
                                                    std::string_view name);

/// What a run may do in the data directory, from the least to the most.
enum class DataDirectoryUse {
  nothing,   ///< the text is empty; it does not mean the working directory
  files,     ///< use files in it by name
  commands,  ///< also use it in shell commands: the text is one plain word for the shell, and it is
             ///< not the root of the file system under any spelling
};
[[nodiscard]] DataDirectoryUse dataDirectoryUse(const RunContext& context);

/// The user and the group "clamav"; each is absent if the machine lacks it.
struct DatabaseOwner {
  std::optional<uid_t> user;
  std::optional<gid_t> group;
};
[[nodiscard]] DatabaseOwner databaseOwner();

/// Removes a folder with this name, or a link to a folder, from the data directory. It would count
/// as an installed database, which no update would then replace.
void removeFolderNamed(const RunContext& context, std::string_view name);

/// Makes "clamav" the owner of the data directory and the files in it, and sets their modes. Does
/// nothing unless the directory may be used in commands.
void giveDatabasesToClamav(const RunContext& context);

}  // namespace tarnwick
