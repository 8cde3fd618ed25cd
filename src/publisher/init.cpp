#include "publisher/init.hpp"

#include <fmt/format.h>

#include "publisher/disk.hpp"
#include "publisher/key.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

void linkNames(const fs::path& folder, std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    removeFile(folder / name);  // of an init that was cut short
    makeLink(fmt::format("current/{}", name), folder / name);
  }
  syncPath(folder);
}

void makeTree(const Home& home) {
  for (const fs::path& folder : {home.mirror, home.releases, home.definitions, home.scripted}) {
    makeFolders(folder);
  }
  linkNames(home.scripted, {"VestRUM.cud", "VestRUM.cud.signature", "VestRUM-db-version.txt"});
  linkNames(home.tree, {"Vestrum.database", "Vestrum.database.signature"});
}

}  // namespace

void makeHome(const std::string& homePath) {
  const Home home = locate(homePath);
  if (isThere(home.privateKey)) {
    refuse(fmt::format("{} holds a private key already; it is kept as it is", home.folder.string()),
           "every installation trusts that key: use another --home for a new one");
  }
  if (isAnythingReleased(home)) refuseWithoutKey(home);
  const Workplace work = Workplace::inHome(home);
  makeTree(home);
  makeKeys(home, work);
  say(fmt::format("Publishing home {} is ready.", home.folder.string()));
  say(fmt::format("Build Tarnwick with -DTARNWICK_PUBLIC_KEY_FILE={}", home.publicKey.string()));
  say(fmt::format("Keep a copy of {} in a safe place: without it nobody can be updated.",
                  home.privateKey.string()));
}

}  // namespace tarnwick::publisher
