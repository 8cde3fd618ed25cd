#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwick::publisher {

/// Removes all scripts but the newest `keep`, or but those that are smaller together than the
/// container. An installation behind the oldest finds its first script missing, and fetches the
/// whole container.
void prune(const std::string& homePath, std::optional<std::int64_t> keep);

}  // namespace tarnwick::publisher
