#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string_view>

#include "base/file_failure.hpp"

/// Files that are replaced whole: whoever looks, at any instant and after any loss of power, finds
/// the old file or the new one. New content is staged beside its target under a name nobody can
/// guess, brought to the disk, and renamed over the target; a file that already is on the target's
/// file system needs no second copy.
namespace tarnwick {

/// Who is to own a file, and its mode. Owner and group are absent where the machine lacks them.
struct FileAttributes {
  std::optional<uid_t> owner;
  std::optional<gid_t> group;
  mode_t mode = 0644;
};

/// Why a file was not replaced for good.
struct ReplacementFailure {
  FileFailure cause;
  bool isInPlace = false;  ///< the new file stands there, but a loss of power may undo that
};

/// Moves `source` over `target`, across file systems too. Owner, group and mode are set on the
/// way, and a failure to set them is no failure of the move. None on success. After a failure both
/// files stand where they were, with what they held, unless the new one is in place.
[[nodiscard]] std::optional<ReplacementFailure> moveFileIntoPlace(
    const std::filesystem::path& source, const std::filesystem::path& target,
    const FileAttributes& attributes);

/// Replaces `target` by a file with this content. None on success.
[[nodiscard]] std::optional<ReplacementFailure> writeFileWhole(const std::filesystem::path& target,
                                                               std::string_view content,
                                                               mode_t mode);

/// Brings the content of a file to the disk, links followed, and then the folder that it lies in.
/// None on success.
[[nodiscard]] std::optional<FileFailure> syncFileAndFolder(const std::filesystem::path& path);

/// Brings to the disk which files a folder holds, and so the deletion of those that it held; "" is
/// the working directory. None on success, and on a file system that cannot sync folders.
[[nodiscard]] std::optional<FileFailure> syncFolder(const std::filesystem::path& folder);

/// Removes what a run that was killed left staged in `directory`.
void removeStagedLeftovers(const std::filesystem::path& directory);

}  // namespace tarnwick
