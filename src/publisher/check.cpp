#include "publisher/check.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "publisher/access_check.hpp"
#include "publisher/disk.hpp"
#include "publisher/key.hpp"
#include "publisher/mirror_check.hpp"
#include "publisher/owner.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/tree_check.hpp"
#include "transfer/signing/crypto.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

void checkPair(const Home& home, const std::string& publicKey, Findings& findings) {
  const auto privateKey = contentOf(home.privateKey);
  if (!privateKey && isThere(home.privateKey) && ::access(home.privateKey.c_str(), R_OK) != 0) {
    findings.note(fmt::format("Not looked at: private.pem, which {} may not read", ownName()));
    return;
  }
  const auto half = privateKey ? crypto::publicHalfOf(*privateKey) : std::nullopt;
  if (!half || *half != publicKey) {
    findings.damage("public.pem is not the public half of private.pem");
  }
}

void checkKeys(const Home& home, Findings& findings) {
  const std::string publicKey = contentOf(home.publicKey).value_or("");
  if (!isFile(home.privateKey)) {
    findings.damage("private.pem is lost; put back the key with the fingerprint " +
                    fingerprintOf(publicKey));
    return;
  }
  struct stat status = {};
  constexpr mode_t rights = 07777;
  if (::stat(home.privateKey.c_str(), &status) == 0 &&
      (status.st_mode & rights) != (S_IRUSR | S_IWUSR)) {
    findings.damage("private.pem can be read by others; chmod 600 it");
  }
  checkPair(home, publicKey, findings);
  if (publicKey.empty() || contentOf(home.oneLineKey) != onOneLine(publicKey)) {
    findings.damage("public-one-line.pem is not public.pem on one line");
  }
}

void checkLinks(const Home& home, Findings& findings) {
  for (const char* const name :
       {"VestRUM.cud", "VestRUM.cud.signature", "VestRUM-db-version.txt"}) {
    checkLink(home.scripted / name, findings);
  }
  checkLink(home.tree / "Vestrum.database", findings);
  checkLink(home.tree / "Vestrum.database.signature", findings);
}

/// A release that was interrupted may have left one script, which nobody asks for and the next
/// release replaces. Nothing else puts anything there.
void checkStrangers(const Home& home, std::int64_t oldest, std::int64_t version,
                    Findings& findings) {
  for (const fs::path& entry : entriesOf(home.scripted)) {
    const std::string name = entry.filename();
    const std::int64_t number = versionOfScriptName(name);
    if (name == "current" || name == "VestRUM.cud" || name == "VestRUM.cud.signature" ||
        name == "VestRUM-db-version.txt" || (number > oldest && number <= version)) {
      continue;
    }
    if (number == version + 1) {
      findings.note("Left over: " + name + ", which the next release replaces");
    } else if (number > 1 && number <= oldest) {
      findings.note("Left over: " + name + ", which the next prune removes");
    } else {
      findings.damage(fmt::format("{} belongs to no version up to {}", name, version));
    }
  }
}

/// A container that nobody renewed, or a mirror that nobody fills.
void checkAge(const fs::path& file, const std::string& name, std::optional<std::int64_t> maxAgeDays,
              Findings& findings) {
  constexpr std::int64_t day = 86400;
  constexpr std::int64_t usualDays = 3;
  const std::time_t date = dateOf(file);
  const std::int64_t age = date == 0 ? 0 : std::time(nullptr) - date;
  if (age <= maxAgeDays.value_or(usualDays) * day) return;
  const std::string old = fmt::format("{} is {} old", name, counted(age / day, "day"));
  if (maxAgeDays) {
    findings.damage(old);
  } else {
    findings.note("Old: " + old);
  }
}

std::string stateOfDefinitions(const Home& home) {
  if (!isFolder(home.tree / "current")) return "not published yet";
  return sizeOf(home.tree / "Vestrum.database") > 0 ? "published" : "withdrawn";
}

std::int64_t checkPublished(const Home& home, const Workplace& work, Findings& findings) {
  return checkTree(treeOf(home),
                   {.home = home,
                    .work = work,
                    .publicKey = contentOf(home.publicKey).value_or(""),
                    .oldest = oldestVersion(home)},
                   findings);
}

}  // namespace

std::int64_t checkPublic(const Home& home, const Workplace& work, Findings& findings) {
  checkLinks(home, findings);
  checkMirror(home, work, findings);
  return checkPublished(home, work, findings);
}

void checkHome(const std::string& homePath, std::optional<std::int64_t> maxAgeDays, bool json) {
  const Home home = openHome(homePath);
  const bool mirrorOnly = !isAnythingReleased(home) && !entriesOf(home.mirror).empty();
  if (!isAnythingReleased(home) && !mirrorOnly) refuseUnreleased(home);
  const Workplace work = Workplace::forReading(home);
  Findings findings;
  const std::int64_t oldest = oldestVersion(home);
  std::int64_t version = 0;
  if (!mirrorOnly) {
    checkKeys(home, findings);
    checkLinks(home, findings);
  }
  checkAccess(home, findings);
  checkMirror(home, work, findings);
  if (!mirrorOnly) {
    version = checkPublished(home, work, findings);
    checkStrangers(home, oldest, version, findings);
  }
  checkAge(home.mirror / "dns.txt", "mirror/dns.txt", maxAgeDays, findings);
  if (maxAgeDays && version > 0) {
    checkAge(home.scripted / "VestRUM.cud", "VestRUM.cud", maxAgeDays, findings);
  }
  if (json) {
    say(indentedTextOf(factsOf(findings, version)));
  } else {
    findings.print();
  }
  if (findings.damages() > 0) {
    refuse(fmt::format("{} found; put right from a copy of {} what cannot be published anew",
                       counted(findings.damages(), "thing"), home.folder.string()));
  }
  if (json) return;
  if (mirrorOnly) return say("All is well: a mirror, and nothing released.");
  say(fmt::format("All is well: version {}, {}, definitions file {}.", version,
                  counted(std::max<std::int64_t>(version - oldest, 0), "script"),
                  stateOfDefinitions(home)));
}

}  // namespace tarnwick::publisher
