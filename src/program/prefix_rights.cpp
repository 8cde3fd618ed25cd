#include "program/prefix_rights.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "base/files.hpp"
#include "base/platform_log.hpp"
#include "base/prefix.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

using Paths = std::vector<std::string>;

/// What is not there can neither be executed nor believed, and other messages tell of it.
bool othersCanChange(const fs::path& path) {
  return fileExists(path) && !belongsToRootAlone(path);
}

/// Where it is a link, others could also exchange what it leads to.
bool othersCanChangeOrExchange(const fs::path& path) {
  std::error_code error;
  const fs::path target = fs::canonical(path, error);
  if (error) return false;
  return othersCanChange(target) ||
         (fs::is_symlink(path, error) && othersCanChange(target.parent_path()));
}

void findInFolder(const std::string& folder, Paths& found) {
  Paths names = namesIn(folder).value_or(Paths{});
  std::ranges::sort(names);
  for (const std::string& name : names) {
    std::string path = fmt::format("{}/{}", folder, name);
    if (othersCanChangeOrExchange(path)) found.push_back(std::move(path));
  }
}

Paths whatOthersCanChange() {
  Paths found;
  const Paths folders{inPrefix(""), inPrefix("bin"), inPrefix("etc"), inPrefix("share")};
  std::ranges::copy_if(folders, std::back_inserter(found), othersCanChange);
  for (const auto* const folder : {"bin", "etc"}) findInFolder(inPrefix(folder), found);
  return found;
}

}  // namespace

void reportPrefixRights() {
  const Paths found = whatOthersCanChange();
  if (found.empty()) return;
  std::string first = found.front();
  // The name may be somebody else's choice: it stays within its line.
  const auto breaksTheLine = [](unsigned char c) { return c < ' '; };
  std::ranges::replace_if(first, breaksTheLine, '?');
  const std::string more =
      found.size() > 1 ? fmt::format(" (and {} more)", found.size() - 1) : std::string();
  platformLog(
      fmt::format("Others than root can change {}{}. Run provision, as root.", first, more));
}

}  // namespace tarnwick
