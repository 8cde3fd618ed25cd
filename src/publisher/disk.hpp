#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Files and folders of a home. What changes something throws std::system_error when it cannot, and
/// the error names the path.
namespace tarnwick::publisher {

enum class Follow { yes, no };

/// What a file holds. None when it cannot be read, is no plain file, or is larger than `limit`.
constexpr std::uintmax_t noLimit = static_cast<std::uintmax_t>(-1);
std::optional<std::string> contentOf(const std::filesystem::path& file,
                                     std::uintmax_t limit = noLimit);
/// The same, where a link may not be followed.
std::optional<std::string> contentOf(const std::filesystem::path& file, Follow follow,
                                     std::uintmax_t limit = noLimit);

/// What a link leads to, as it stands; empty for what is no link.
std::string targetOf(const std::filesystem::path& link);

/// The number of the set that a link leads to, 0 without one.
std::int64_t numberBehind(const std::filesystem::path& link);

/// Whether something is there, be it a link that leads nowhere.
bool isThere(const std::filesystem::path& path);
/// Whether a file of that name is there, links followed.
bool isFile(const std::filesystem::path& path);
bool isFolder(const std::filesystem::path& path);
bool isLink(const std::filesystem::path& path);
/// 0 for what cannot be looked at.
std::uintmax_t sizeOf(const std::filesystem::path& file);

/// When it was last changed; 0 for what cannot be looked at.
std::time_t dateOf(const std::filesystem::path& file);

/// The full paths of what a folder holds, sorted, without hidden ones. Empty when it cannot be
/// read.
std::vector<std::filesystem::path> entriesOf(const std::filesystem::path& folder);

/// Makes or replaces a file; `writeSynced` has brought it to the disk when it returns.
void write(const std::filesystem::path& file, std::string_view content, mode_t mode = 0644);
void writeSynced(const std::filesystem::path& file, std::string_view content, mode_t mode = 0644);
void copySynced(const std::filesystem::path& from, const std::filesystem::path& to);
void syncPath(const std::filesystem::path& path);
void moveOver(const std::filesystem::path& from, const std::filesystem::path& to);
void makeFolder(const std::filesystem::path& folder, mode_t mode = 0755);
void makeFolders(const std::filesystem::path& folder);
void removeFile(const std::filesystem::path& file);

void makeLink(const std::string& target, const std::filesystem::path& link);
/// Makes or replaces a link in one step; `spare` is a name beside it, or on the same file system.
void placeLink(const std::string& target, const std::filesystem::path& link,
               const std::filesystem::path& spare);

/// The same, with the disk: what it leads to is there before it, whenever the power goes.
void switchLink(const std::string& target, const std::filesystem::path& link,
                const std::filesystem::path& spare);

/// Who keeps a copy of a file goes by its date, in whole seconds, and its length: two publications
/// within one second would look like one. Dates what is new after what is published.
void dateAfter(const std::filesystem::path& newFolder, const std::filesystem::path& published);

/// Removes every entry of a folder but the one that a link leads to: what was published before, and
/// what an interrupted change left behind.
void sweepOthers(const std::filesystem::path& parent, const std::filesystem::path& link);

/// Whether the file system that holds this has no room left to speak of.
bool diskIsFull(const std::filesystem::path& path);

}  // namespace tarnwick::publisher
