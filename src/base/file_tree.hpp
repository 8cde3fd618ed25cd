#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What exists at and below a path.
namespace tarnwick {

/// Whether a path leads to something that exists, links followed. False too if the system cannot
/// tell.
[[nodiscard]] bool fileExists(const std::filesystem::path& path);

/// The names in a folder, in the order in which the system lists them. None if the folder could
/// not be read to its end.
[[nodiscard]] std::optional<std::vector<std::string>> namesIn(
    const std::filesystem::path& directory);

/// A path at which no file or folder can be made. It replaces the path of a folder that could not
/// be made.
[[nodiscard]] std::filesystem::path unmakeablePath(const std::filesystem::path& wanted);

/// The path from which unmakeablePath made this one, or `path` itself.
[[nodiscard]] std::filesystem::path wantedPath(const std::filesystem::path& path);

/// Deletes a file, or a folder with everything in it. Ignores every error, and a path at which
/// nothing exists.
void removeTree(const std::filesystem::path& path);

}  // namespace tarnwick
