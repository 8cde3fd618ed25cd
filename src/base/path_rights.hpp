#pragma once

#include <sys/types.h>

#include <filesystem>
#include <vector>

/// Who can change what a path leads to, and where it leads. Root always can.
namespace tarnwick {

/// Whether what `path` leads to belongs to root and no other user can write to it. False too if
/// the system cannot tell.
[[nodiscard]] bool belongsToRootAlone(const std::filesystem::path& path);

/// What lets other users redirect `path`: each folder on the way in which they can exchange a name,
/// and each name in a sticky folder that belongs to them. `trusted` is one more user who may do so,
/// or 0. Follows every link and examines the way to its target too. Ends at the first name that
/// does not exist.
[[nodiscard]] std::vector<std::filesystem::path> whereOthersCanRedirect(
    const std::filesystem::path& path, uid_t trusted);

/// Whether users other than root and `trusted` can delete or exchange files of another user in this
/// folder. True too if the system cannot tell.
[[nodiscard]] bool othersCanExchangeIn(const std::filesystem::path& folder, uid_t trusted);

}  // namespace tarnwick
