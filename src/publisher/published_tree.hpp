#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// What is published, by the names that installations ask for: in the home, or as a server gave it
/// out.
struct PublishedTree {
  /// None for what is not there. Names are ours, such as "VestRUM.cud" or
  /// "Vestrum.database.signature".
  std::function<std::optional<std::string>(const std::string& name)> read;
  /// Where the container is, for ClamAV's programs.
  std::filesystem::path container;
};

PublishedTree treeOf(const Home& home);

}  // namespace tarnwick::publisher
