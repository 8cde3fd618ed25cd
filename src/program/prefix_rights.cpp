#include "program/prefix_rights.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "base/path_rights.hpp"
#include "base/platform_log.hpp"
#include "base/text_rules.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

using Paths = std::vector<std::string>;

/// False for a path that does not exist: the run cannot use it, and other messages report it.
bool othersCanChange(const fs::path& path) {
  return fileExists(path) && !belongsToRootAlone(path);
}

constexpr uid_t rootAlone = 0;

/// Whether other users can redirect the path through a folder or link that is not in `known`.
bool othersCanRedirect(const std::string& path, const Paths& known) {
  const std::vector<fs::path> found = whereOthersCanRedirect(path, rootAlone);
  return std::ranges::any_of(found, [&known](const fs::path& where) {
    return std::ranges::find(known, where.string()) == known.end();
  });
}

/// The paths that other users can change or redirect. Does not count a folder in `known` again for
/// each path that leads through it.
Paths changeableAmong(const Paths& paths, const Paths& known) {
  Paths found;
  std::ranges::copy_if(paths, std::back_inserter(found), [&known](const std::string& path) {
    return othersCanChange(path) || othersCanRedirect(path, known);
  });
  return found;
}

Paths pathsIn(const std::string& folder) {
  Paths names = namesIn(folder).value_or(Paths{});
  std::ranges::sort(names);
  std::ranges::transform(names, names.begin(), [&folder](const std::string& name) {
    return fmt::format("{}/{}", folder, name);
  });
  return names;
}

/// The folders above the prefix in which other users can replace it as a whole.
Paths foldersAboveThatOthersCanChange() {
  Paths found;
  for (const fs::path& where : whereOthersCanRedirect(inPrefix(""), rootAlone)) {
    found.push_back(where.string());
  }
  return found;
}

void append(Paths& paths, const Paths& more) {
  paths.insert(paths.end(), more.begin(), more.end());
}

Paths whatOthersCanChange() {
  Paths found = foldersAboveThatOthersCanChange();
  append(found, changeableAmong({inPrefix("")}, found));
  append(found, changeableAmong({inPrefix("bin"), inPrefix("etc"), inPrefix("share")}, found));
  for (const auto* const folder : {"bin", "etc"}) {
    append(found, changeableAmong(pathsIn(inPrefix(folder)), found));
  }
  return found;
}

}  // namespace

void reportPrefixRights() {
  const Paths found = whatOthersCanChange();
  if (found.empty()) return;
  std::string first = shownText(found.front());
  const auto* const advice = first.starts_with(inPrefix(""))
                                 ? "Run provision, as root."
                                 : "Make root its owner, and the only one who can write to it.";
  // Another user may have chosen the name, so keep it on one line.
  const auto breaksTheLine = [](unsigned char c) { return c < ' '; };
  std::ranges::replace_if(first, breaksTheLine, '?');
  const std::string more =
      found.size() > 1 ? fmt::format(" (and {} more)", found.size() - 1) : std::string();
  platformLog(fmt::format("Others than root can change {}{}. {}", first, more, advice));
}

}  // namespace tarnwick
