#include "publisher/published_tree.hpp"

#include "publisher/disk.hpp"

namespace tarnwick::publisher {

PublishedTree treeOf(const Home& home) {
  const auto read = [home](const std::string& name) {
    return contentOf((name.starts_with("Vestrum.") ? home.tree : home.scripted) / name);
  };
  return {.read = read, .container = home.scripted / "VestRUM.cud"};
}

}  // namespace tarnwick::publisher
