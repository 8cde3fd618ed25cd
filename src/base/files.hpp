#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick {

/// Whether something is there, links followed. False too when that cannot be told.
bool fileExists(const std::filesystem::path& path);

/// Whether what the path leads to is root's and nobody else can write to it. False too when that
/// cannot be told.
bool belongsToRootAlone(const std::filesystem::path& path);

/// The names in a folder, in the order in which the system lists them. None when it could not be
/// read to its end.
std::optional<std::vector<std::string>> namesIn(const std::filesystem::path& directory);

/// A path at which nobody can ever make anything, for a folder that could not be made where it was
/// wanted; and the path where it was wanted, or the very path that is given.
std::filesystem::path unmakeablePath(const std::filesystem::path& wanted);
std::filesystem::path wantedPath(const std::filesystem::path& path);

/// Deletes a file or a folder with all it holds. A missing one and every error are ignored.
void removeTree(const std::filesystem::path& path);

}  // namespace tarnwick
