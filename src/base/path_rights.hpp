#pragma once

#include <sys/types.h>

#include <filesystem>
#include <vector>

/// Who decides where a path leads. Root always may; `trusted` is one more user who may, or 0.
namespace tarnwick {

/// What lets other users make `path` lead elsewhere: each folder on the way in which they can
/// exchange a name, and each name of theirs in a sticky folder. Every link on the way is followed
/// and its own way judged too. Ends at the first name that is not there.
std::vector<std::filesystem::path> whereOthersCanRedirect(const std::filesystem::path& path,
                                                          uid_t trusted);

/// Whether other users can delete or exchange what somebody else has put in this folder. True too
/// when that cannot be told.
bool othersCanExchangeIn(const std::filesystem::path& folder, uid_t trusted);

}  // namespace tarnwick
