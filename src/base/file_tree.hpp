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

/// Deletes a file, or a folder with everything in it. Ignores every error, and a path at which
/// nothing exists.
void removeTree(const std::filesystem::path& path);

}  // namespace tarnwick
