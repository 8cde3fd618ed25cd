#include "publisher/prune.hpp"

#include <fmt/format.h>

#include <set>

#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/events.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/script_walk.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// So many of the newest scripts, with their signatures, are smaller together than the container,
/// and so worth fetching.
std::int64_t worthwhileScripts(const Home& home, std::int64_t oldest, std::int64_t version) {
  const std::uintmax_t limit = sizeOf(home.scripted / "VestRUM.cud");
  std::uintmax_t size = 0;
  std::int64_t number = version;
  for (; number > oldest; --number) {
    const fs::path script = home.scripted / scriptName(number);
    size += sizeOf(script) + sizeOf(script.string() + ".signature");
    if (size >= limit) break;
  }
  return version - number;
}

[[noreturn]] void refuseForCheck(const Home& home, const std::string& what) {
  refuse(fmt::format("{}; see: tarnwick-publish --home {} check", what, home.folder.string()));
}

/// The container of that version, made as installations make theirs.
void bringFirstForward(const Home& home, const Workplace& work, std::int64_t oldest,
                       std::int64_t target) {
  const auto first = unpackFile(home.firstContainer);
  if (!first) refuseForCheck(home, "first.cud cannot be unpacked");
  const ScriptWalk walk = walkScripts(*first, treeOf(home), oldest, target);
  if (!walk.result) refuseForCheck(home, scriptName(walk.stoppedAt) + " does not apply");
  const auto packed = pack(*walk.result);
  const auto header = packed ? headerOf(*packed) : std::nullopt;
  if (!header || header->version != target || unpack(*packed) != *walk.result) {
    refuse("first.cud could not be made anew");
  }
  writeSynced(work.folder() / "first.cud", *packed);
  moveOver(work.folder() / "first.cud", home.firstContainer);
  syncPath(home.folder);
}

/// From the oldest on: whatever is left when this is cut short, a script that an installation finds
/// leads it to the newest version.
void removeScripts(const Home& home, std::int64_t upTo) {
  std::set<std::int64_t> versions;
  for (const fs::path& entry : entriesOf(home.scripted)) {
    versions.insert(versionOfScriptName(entry.filename()));
  }
  for (const std::int64_t version : versions) {
    if (version == 0) continue;
    if (version > upTo) break;
    removeFile(home.scripted / scriptName(version));
    removeFile(home.scripted / (scriptName(version) + ".signature"));
  }
}

}  // namespace

void prune(const std::string& homePath, std::optional<std::int64_t> keep) {
  const Home home = openHome(homePath);
  const Workplace work = Workplace::inHome(home);
  const std::int64_t version = publishedVersion(home, work);
  if (version == 0) refuseUnreleased(home);
  std::int64_t oldest = oldestVersion(home);
  const std::int64_t kept = keep.value_or(worthwhileScripts(home, oldest, version));
  if (version - kept > oldest) {
    bringFirstForward(home, work, oldest, version - kept);
    oldest = oldestVersion(home);
  }
  removeScripts(home, oldest);
  noteEvent(home, "prune", {{"scripts", version - oldest}, {"from_version", oldest}});
  say(fmt::format("Kept {}, from version {} on.", counted(version - oldest, "script"), oldest));
}

}  // namespace tarnwick::publisher
