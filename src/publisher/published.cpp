#include "publisher/published.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "base/text_rules.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/key.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

bool announces(const fs::path& versionFile, std::int64_t version) {
  constexpr std::uintmax_t longest = 99;
  const std::string wanted = fmt::format("VestRUM:{}", version);
  const auto content = contentOf(versionFile, longest);
  return content && (*content == wanted || *content == wanted + '\n');
}

/// The version of a set in site/releases/; 0 for one that is not whole.
std::int64_t versionOfSet(const fs::path& set, const std::string& publicKey) {
  const std::int64_t version = versionOfFile(set / "VestRUM.cud");
  const bool whole = version > 0 && set.filename() == std::to_string(version) &&
                     isSigned(set / "VestRUM.cud", publicKey) &&
                     announces(set / versionFileName, version);
  return whole ? version : 0;
}

/// Without its link a set is out of sight, and complete all the same: a first release was
/// interrupted before the last step, or somebody removed the link.
void putBackCurrent(const Home& home, const Workplace& work) {
  const std::string publicKey = contentOf(home.publicKey).value_or("");
  std::int64_t newest = 0;
  for (const fs::path& set : entriesOf(home.releases)) {
    newest = std::max(newest, versionOfSet(set, publicKey));
  }
  if (newest == 0) return;
  showRelease(home, work, newest);
  say(fmt::format("Put back version {}, which was complete and out of sight.", newest));
}

}  // namespace

std::optional<std::int64_t> announcedVersion(const std::optional<std::string>& text) {
  constexpr std::string_view start = "VestRUM:";
  if (!text || !text->starts_with(start)) return std::nullopt;
  return parseInteger(std::string_view(*text).substr(start.size()));
}

std::int64_t publishedVersion(const Home& home, const Workplace& work) {
  const fs::path current = home.scripted / "current";
  if (!isFolder(current)) putBackCurrent(home, work);
  if (!isFolder(current)) {
    // Counting from 1 again would leave every installation where it is.
    if (isContainerReleased(home)) {
      refuse(fmt::format("the published container is lost; put it back from a copy of {}",
                         home.folder.string()));
    }
    return 0;
  }
  const std::int64_t version = versionOfFile(home.scripted / "VestRUM.cud");
  if (version == 0 || !announces(home.scripted / versionFileName, version)) {
    refuse("the published container and version file do not agree",
           fmt::format("see: tarnwick-publish --home {} check", home.folder.string()));
  }
  return version;
}

std::int64_t oldestVersion(const Home& home) {
  return std::max<std::int64_t>(versionOfFile(home.firstContainer), 1);
}

void showRelease(const Home& home, const Workplace& work, std::int64_t version) {
  if (version == 1 && !isThere(home.firstContainer)) {
    copySynced(home.releases / "1" / "VestRUM.cud", work.folder() / "first");
    moveOver(work.folder() / "first", home.firstContainer);
    syncPath(home.folder);
  }
  switchLink(fmt::format("../../releases/{}", version), home.scripted / "current",
             work.folder() / "link");
}

void refuseUnreleased(const Home& home) {
  refuse(
      "nothing is released yet",
      fmt::format("begin with: tarnwick-publish --home {} release FOLDER", home.folder.string()));
}

}  // namespace tarnwick::publisher
