#include "publisher/mirror_set.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <system_error>

#include "base/file_tree.hpp"
#include "base/text_rules.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/mirror_check.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

std::string versionOfClamav(const Workplace& work) {
  constexpr std::string_view start = "ClamAV ";
  const ChildEnd end = runChild(work.run("sigtool", {"--version"}));
  const std::string_view line = firstLine(end.output);
  if (!line.starts_with(start)) return std::string(line);
  return std::string(line.substr(start.size(), line.find('/') - start.size()));
}

/// The record in the form of ClamAV's own. It tells when upstream was asked, warns nobody of an old
/// ClamAV (0), and knows of no newer program than the one here.
std::string versionRecord(const MirroredDatabases& databases, const Workplace& work) {
  const auto versionOf = [&databases](const char* name) {
    const auto found = databases.find(name);
    return found == databases.end() ? 0 : found->second.version;
  };
  std::string level = "0";
  if (const auto daily = databases.find("daily"); daily != databases.end()) {
    const auto header = headerOfFile(daily->second.container);
    if (header && !header->level().empty()) level = header->level();
  }
  return fmt::format("{}:{}:{}:{}:0:{}:0:{}\n", versionOfClamav(work), versionOf("main"),
                     versionOf("daily"), std::time(nullptr), level, versionOf("bytecode"));
}

/// A container's name that is missing leads nowhere until `current` is switched; a plain file is
/// replaced only after that, and the record, which names them, last.
void linkName(const Home& home, const Workplace& work, const std::string& name) {
  if (targetOf(home.mirror / name) == "current/" + name) return;
  placeLink("current/" + name, home.mirror / name, work.folder() / "name");
}

/// Another user's file can be copied only.
void linkOrCopy(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_hard_link(fs::canonical(from), to, error);
  if (error) return copySynced(from, to);
  syncPath(to);
}

/// The names below `current`, as clients know them.
std::vector<std::string> namesOf(const MirroredDatabases& databases) {
  std::vector<std::string> names;
  for (const auto& [name, database] : databases) {
    names.push_back(name + ".cvd");
    if (!database.signature.empty()) names.push_back(signatureName(name, database.version));
  }
  return names;
}

/// Links of signatures that the set before had.
void sweepSignatures(const Home& home) {
  for (const fs::path& entry : entriesOf(home.mirror)) {
    if (isLink(entry) && entry.string().ends_with(".cvd.sign") && !isFile(entry)) {
      removeFile(entry);
    }
  }
}

void publishSet(const Home& home, const Workplace& work, const MirroredDatabases& databases) {
  const fs::path set = work.folder() / "set";
  const fs::path current = home.mirror / "current";
  for (const auto& [name, database] : databases) {
    linkOrCopy(database.container, set / (name + ".cvd"));
    if (!database.signature.empty()) {
      linkOrCopy(database.signature, set / signatureName(name, database.version));
    }
  }
  syncPath(set);
  const std::string number = std::to_string(numberBehind(current) + 1);
  moveOver(set, home.mirror / "sets" / number);
  const std::vector<std::string> names = namesOf(databases);
  for (const std::string& name : names) {
    if (!isThere(home.mirror / name)) linkName(home, work, name);
  }
  // A folder, which a copy made of the link, would stay in the way for ever.
  if (!isLink(current)) removeTree(current);
  switchLink("sets/" + number, current, work.folder() / "link");
  for (const std::string& name : names) linkName(home, work, name);
  linkName(home, work, "dns.txt");
  sweepSignatures(home);
  syncPath(home.mirror);
}

void publishPatches(const Home& home) {
  constexpr mode_t mode = 0644;
  bool any = false;
  for (const fs::path& patch : entriesOf(home.upstream)) {
    const std::string name = patch.filename();
    if (!name.ends_with(".cdiff") && !name.ends_with(".cdiff.sign")) continue;
    if (name.find('-') == std::string::npos) continue;
    ::chmod(patch.c_str(), mode);
    syncPath(patch);
    moveOver(patch, home.mirror / name);
    any = true;
  }
  if (any) syncPath(home.mirror);
}

/// As many of the newest as are worth fetching instead of the container.
void sweepPatches(const Home& home, const std::string& name, const MirroredDatabase& database) {
  const std::uintmax_t limit = sizeOf(home.mirror / (name + ".cvd"));
  std::uintmax_t size = 0;
  for (const std::int64_t number : patchesOf(home, name)) {
    const fs::path patch = home.mirror / fmt::format("{}-{}.cdiff", name, number);
    size += sizeOf(patch);
    if (size < limit && number > database.version - patchesKept) continue;
    removeFile(patch);
    removeFile(patch.string() + ".sign");
  }
}

bool isNothingNew(const Home& home, const MirroredDatabases& databases) {
  const fs::path current = home.mirror / "current";
  for (const auto& [name, database] : databases) {
    const std::string file = name + ".cvd";
    std::error_code ignored;
    if (!fs::equivalent(database.container, current / file, ignored) ||
        !isLink(home.mirror / file)) {
      return false;
    }
    const fs::path signature = current / signatureName(name, database.version);
    if (!database.signature.empty() && !isFile(signature)) return false;
  }
  return isLink(current) && targetOf(home.mirror / "dns.txt") == "current/dns.txt";
}

}  // namespace

std::string signatureName(const std::string& name, std::int64_t version) {
  return fmt::format("{}-{}.cvd.sign", name, version);
}

void putMirrorInPlace(const Home& home, const Workplace& work, const MirroredDatabases& databases) {
  const fs::path set = work.folder() / "set";
  makeFolders(home.mirror / "sets");
  makeFolder(set);
  writeSynced(set / "dns.txt", versionRecord(databases, work));
  publishPatches(home);
  const bool nothingNew = isNothingNew(home, databases);
  if (nothingNew) {
    moveOver(set / "dns.txt", home.mirror / "current" / "dns.txt");
  } else {
    sweepOthers(home.mirror / "sets", home.mirror / "current");
    publishSet(home, work, databases);
  }
  std::string line = nothingNew ? "Nothing new:" : "Mirrored:";
  for (const auto& [name, database] : databases) {
    sweepPatches(home, name, database);
    line += fmt::format(" {} {}", name, database.version);
  }
  say(line);
}

}  // namespace tarnwick::publisher
