#include "publisher/mirror.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "base/file_tree.hpp"
#include "publisher/container.hpp"
#include "publisher/detached_signature.hpp"
#include "publisher/disk.hpp"
#include "publisher/mirror_check.hpp"
#include "publisher/mirror_set.hpp"
#include "publisher/refusal.hpp"
#include "publisher/upstream.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// A name of a database. Else the name of a patch could be read as that of another's.
bool isDatabaseName(std::string_view name) {
  constexpr std::string_view allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
  return !name.empty() && name.find_first_not_of(allowed) == std::string_view::npos;
}

std::set<std::string> databaseNames(const Home& home) {
  std::set<std::string> names{"main", "daily", "bytecode"};
  for (const fs::path& folder : {home.mirror / "current", home.upstream}) {
    for (const fs::path& file : entriesOf(folder)) {
      if (file.extension() == ".cvd" && isDatabaseName(file.stem().string())) {
        names.insert(file.stem());
      }
    }
  }
  return names;
}

/// Settles which container of one database is to be served: the newer one of what is served and
/// what freshclam has. What is served and damaged counts as nothing.
MirroredDatabase chooseContainer(const Home& home, const Workplace& work, const std::string& name) {
  const fs::path here = home.mirror / (name + ".cvd");
  const fs::path fetched = home.upstream / (name + ".cvd");
  MirroredDatabase database;
  if (isGoodContainer(here, work)) {
    database.served = versionOfFile(here);
    database.version = database.served;
    database.container = here;
  }
  if (versionOfFile(fetched) <= database.served) return database;
  // freshclam verified it, and goes by the header alone from then on; a power cut may have taken
  // the rest.
  if (!isGoodContainer(fetched, work)) {
    removeFile(fetched);
    refuse(fmt::format("{} does not fit ClamAV's signature any more and is removed; the mirror "
                       "stays as it was",
                       fetched.string()),
           "do the same again, so that it is fetched anew");
  }
  database.version = versionOfFile(fetched);
  database.container = fetched;
  return database;
}

MirroredDatabases chooseContainers(const Home& home, const Workplace& work) {
  MirroredDatabases databases;
  for (const std::string& name : databaseNames(home)) {
    MirroredDatabase database = chooseContainer(home, work, name);
    if (database.version > 0) databases[name] = std::move(database);
  }
  if (databases.empty()) {
    refuse("freshclam fetched no containers",
           fmt::format("is ExcludeDatabase in {}?", home.freshclamLines.string()));
  }
  return databases;
}

std::string patchName(const std::string& name, std::int64_t version) {
  return fmt::format("{}-{}.cdiff", name, version);
}

/// The patches that clients may need and that are not served, from the newest down.
std::vector<std::int64_t> wantedPatches(const Home& home, const std::string& name,
                                        std::int64_t newest) {
  std::vector<std::int64_t> wanted;
  for (std::int64_t number = newest; number > 1 && number > newest - patchesKept; --number) {
    if (isThere(home.mirror / patchName(name, number))) break;
    wanted.push_back(number);
  }
  return wanted;
}

/// Without the newest patch a client that is one version behind would wait for it, so that an empty
/// one takes the place of one that upstream has not got, or has empty itself.
void fetchPatches(const Home& home, Upstream& upstream, const std::string& name,
                  const MirroredDatabase& database) {
  std::vector<std::int64_t> wanted = wantedPatches(home, name, database.version);
  while (!wanted.empty()) {
    const std::int64_t number = wanted.front();
    const fs::path patch = upstream.file(patchName(name, number));
    if (!isFile(patch)) upstream.askForPatches(name, wanted);
    if (!isFile(patch)) {
      const bool needed =
          number == database.version || (database.served > 0 && database.served < number);
      if (!needed) return;
      if (!upstream.saidThereIsNone()) {
        refuse(fmt::format("{} cannot be fetched; the mirror stays as it was",
                           patchName(name, number)),
               upstream.whyItFailed());
      }
      write(patch, "");
    }
    wanted.erase(wanted.begin());
  }
}

/// The served container, unpacked, for patches to be tried on.
fs::path unpackServed(const Home& home, const Workplace& work, const std::string& name) {
  const fs::path container = home.mirror / (name + ".cvd");
  const auto files = unpackFile(container);
  if (!files) refuse(fmt::format("{} cannot be unpacked", container.string()));
  layOut(*files, work.folder() / name);
  return work.folder() / name;
}

/// The signatures of the patches that were fetched. A missing one is no error.
void fetchPatchSignatures(const Home& home, Upstream& upstream, const std::string& name) {
  for (const fs::path& patch : entriesOf(home.upstream)) {
    const std::string file = patch.filename();
    if (!file.starts_with(name + "-") || !file.ends_with(".cdiff") || sizeOf(patch) == 0) continue;
    fetchSignature(upstream, file + ".sign");
  }
}

/// That of the container, if there is one which the installed sigtool takes.
void fetchContainerSignature(const Home& home, const Workplace& work, Upstream& upstream,
                             const std::string& name, MirroredDatabase& database) {
  const std::string file = signatureName(name, database.version);
  const fs::path served = home.mirror / "current" / file;
  fs::path signature = looksLikeSignature(served) ? served : fetchSignature(upstream, file);
  if (signature.empty()) return;
  if (fitsContainer(signature, database.container, name, work)) {
    database.signature = std::move(signature);
    return;
  }
  say(fmt::format("Left out: {}, which does not fit", file));
  removeFile(upstream.file(file));
}

/// sigtool applies a patch only if ClamAV signed it, to the result that it promises.
bool applies(const fs::path& patch, const fs::path& files, const Workplace& work) {
  const auto apply = [&] {
    return runChild(work.run("sigtool", {"--run-cdiff=" + patch.string()}, files)).isGood();
  };
  if (apply()) return true;
  // It may be the detached signature that is wrong.
  const fs::path signature = patch.string() + ".sign";
  if (!isFile(signature)) return false;
  removeFile(signature);
  return apply();
}

/// What is of no use to clients, such as a patch as large as the container, becomes an empty patch.
/// One that leads to a version before that which is served, or comes after an empty one, cannot be
/// tried here; clients try all of them.
void tryPatches(const Home& home, const Workplace& work, const std::string& name,
                const MirroredDatabase& database) {
  const std::int64_t from = database.served;
  const std::int64_t to = database.version;
  const std::uintmax_t limit = sizeOf(database.container);
  bool whole = from > 0 && from < to && to - patchesKept <= from;
  const fs::path files = whole ? unpackServed(home, work, name) : fs::path();
  for (std::int64_t number = std::max<std::int64_t>(to - patchesKept + 1, 1); number <= to;
       ++number) {
    const fs::path patch = home.upstream / patchName(name, number);
    const bool useful = namesItsVersion(patch) && sizeOf(patch) < limit &&
                        (!whole || number <= from || applies(patch, files, work));
    if (sizeOf(patch) > 0 && !useful) {
      if (diskIsFull(home.folder)) refuse(patchName(name, number) + " cannot be tried");
      say(fmt::format("Left out: {}, which is of no use to version {}", patchName(name, number),
                      number - 1));
      write(patch, "");
      removeFile(patch.string() + ".sign");
    }
    if (number > from && sizeOf(patch) == 0) whole = false;
  }
  removeTree(work.folder() / name);
}

/// A source that goes back is told, and what is served stays.
void tellOfOlder(const Home& home, const MirroredDatabases& databases) {
  for (const auto& [name, database] : databases) {
    const std::int64_t fetched = versionOfFile(home.upstream / (name + ".cvd"));
    if (fetched > 0 && fetched < database.version) {
      say(fmt::format("Older: upstream has {} {}, and {} stays", name, fetched, database.version));
    }
  }
}

}  // namespace

void mirror(const std::string& homePath) {
  const Home home = openHome(homePath);
  if (!findProgram("freshclam")) refuse("freshclam is missing; install clamav-freshclam");
  const Workplace download = Workplace::ofMirror(home);
  Upstream upstream(home, download);
  upstream.fetchContainers();
  MirroredDatabases databases = chooseContainers(home, download);
  tellOfOlder(home, databases);
  for (auto& [name, database] : databases) {
    fetchPatches(home, upstream, name, database);
    fetchPatchSignatures(home, upstream, name);
    tryPatches(home, download, name, database);
    fetchContainerSignature(home, download, upstream, name, database);
  }
  const Workplace work = Workplace::inHome(home);
  putMirrorInPlace(home, work, databases);
}

}  // namespace tarnwick::publisher
