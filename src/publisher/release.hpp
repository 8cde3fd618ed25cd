#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace tarnwick::publisher {

struct ReleaseOptions {
  std::optional<std::int64_t> after = {};  ///< a version that is known to be out, to go on behind
  bool force = false;                      ///< release what looks like a mistake, too
  bool dryRun = false;                     ///< do all but publish
  bool json = false;
};

/// Publishes the signature files of a folder as the next version; nothing, if they are published
/// already. Says what it changes, and refuses what looks like a mistake.
void release(const std::string& homePath, const std::filesystem::path& folder,
             const ReleaseOptions& options);

}  // namespace tarnwick::publisher
