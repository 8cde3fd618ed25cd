#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

/// The versions of VestRUM.cud that are out.
namespace tarnwick::publisher {

inline constexpr auto versionFileName = "VestRUM-db-version.txt";

/// The version in the text of a version file; none if the text is absent or begins differently.
std::optional<std::int64_t> announcedVersion(const std::optional<std::string>& text);

/// The newest published version, 0 before the first release. What stands in the tree must make
/// sense before anything is built upon it: else a refusal. Puts back a complete set that is out of
/// sight, and says so.
std::int64_t publishedVersion(const Home& home, const Workplace& work);

/// The version that the oldest script starts from.
std::int64_t oldestVersion(const Home& home);

/// Makes a set of site/releases/ the published one.
void showRelease(const Home& home, const Workplace& work, std::int64_t version);

[[noreturn]] void refuseUnreleased(const Home& home);

}  // namespace tarnwick::publisher
