#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string_view>

#include "base/file_failure.hpp"

/// Replaces files whole: at any instant, and after any loss of power, a reader finds either the old
/// file or the new one. New content is staged beside its target under a name that other users
/// cannot guess, synced, and renamed over the target. A file on the target's file system is renamed
/// without a copy.
namespace tarnwick {

/// The owner and the mode that a file gets. Without an owner or a group, that one stays as it is.
struct FileAttributes {
  std::optional<uid_t> owner;
  std::optional<gid_t> group;
  mode_t mode = 0644;
};

/// Why a file was not replaced, or why its replacement is not yet safe on the disk.
struct ReplacementFailure {
  FileFailure cause;
  bool isInPlace = false;  ///< the new file is there, but a loss of power may undo that
};

/// Moves `source` over `target`, across file systems too, and sets owner, group and mode; ignores a
/// failure to set these. Returns none on success. After a failure both files are unchanged, unless
/// the new one is in place.
[[nodiscard]] std::optional<ReplacementFailure> moveFileIntoPlace(
    const std::filesystem::path& source, const std::filesystem::path& target,
    const FileAttributes& attributes);

/// Replaces `target` by a file with this content. Returns none on success.
[[nodiscard]] std::optional<ReplacementFailure> writeFileWhole(const std::filesystem::path& target,
                                                               std::string_view content,
                                                               mode_t mode);

/// Syncs the content of a file, following links, and then the folder that contains the file.
/// Returns none on success.
[[nodiscard]] std::optional<FileFailure> syncFileAndFolder(const std::filesystem::path& path);

/// Syncs the list of files in a folder, and so their deletion too; "" is the working directory.
/// Returns none on success, and on a file system that cannot sync folders.
[[nodiscard]] std::optional<FileFailure> syncFolder(const std::filesystem::path& folder);

/// Removes the staged files that a killed run left in `directory`.
void removeStagedLeftovers(const std::filesystem::path& directory);

}  // namespace tarnwick
