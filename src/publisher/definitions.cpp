#include "publisher/definitions.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "base/text_rules.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/events.hpp"
#include "publisher/key.hpp"
#include "publisher/owner.hpp"
#include "publisher/refusal.hpp"
#include "publisher/sensitive.hpp"
#include "transfer/signing/crypto.hpp"
#include "transfer/signing/file_digest.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr auto fileName = "Vestrum.database";

/// Whether ClamAV makes something of a file with this extension.
bool isKindOfClamav(std::string_view kind) {
  static constexpr auto kinds = std::to_array<std::string_view>(
      {"db",  "hdb", "hdu", "hsb",  "hsu", "mdb", "mdu", "msb",  "msu", "ndb",
       "ndu", "ldb", "ldu", "sdb",  "fp",  "sfp", "idb", "cdb",  "crb", "gdb",
       "pdb", "wdb", "ign", "ign2", "ftm", "cbc", "yar", "yara", "cud", "cvd"});
  return std::ranges::find(kinds, kind) != kinds.end();
}

/// The extension, or the whole name where there is none.
std::string kindOf(const fs::path& file) {
  const std::string path = file.string();
  return path.substr(path.rfind('.') + 1);
}

void publishPair(const Home& home, const Workplace& work, std::string_view content,
                 const std::string& privateKey) {
  const fs::path link = home.tree / "current";
  const std::string number = std::to_string(numberBehind(link) + 1);
  const fs::path pair = work.folder() / "pair";
  sweepOthers(home.definitions, link);
  makeFolder(pair);
  writeSynced(pair / fileName, content);
  signFile(pair / fileName, privateKey);
  if (isThere(link / fileName)) dateAfter(pair, link);
  syncPath(pair);
  moveOver(pair, home.definitions / number);
  switchLink("../definitions/" + number, link, work.folder() / "link");
  sweepOthers(home.definitions, link);
}

/// Whether this is out already: published again, it would be fetched again by every installation.
bool isPublishedAlready(const Home& home, std::string_view content) {
  const fs::path published = home.tree / fileName;
  if (contentOf(published) != content) return false;
  if (!isSigned(published, contentOf(home.publicKey).value_or(""))) return false;
  sweepOthers(home.definitions, home.tree / "current");
  return true;
}

/// An installation takes the file whatever the scanner says, because its extension tells ClamAV
/// nothing. The name it has here may tell. Returns how it was tried.
std::string tryWithClamav(const fs::path& file, std::string_view content, const Workplace& work) {
  const std::string kind = kindOf(file);
  if (!isKindOfClamav(kind)) return "not tried: its name tells no kind that ClamAV knows";
  const fs::path database = work.folder() / ("definitions." + kind);
  write(database, content);
  const ChildEnd end = runChild(trialOf(database, work));
  if (!end.isGood()) {
    refuse(fmt::format("{} is not published: {}", file.string(), whyRefused(end)));
  }
  return fmt::format("tried with ClamAV as a .{} file", kind);
}

std::string digestOf(std::string_view content) {
  return hexadecimal(crypto::digestOf(crypto::DigestAlgorithm::sha256, content));
}

}  // namespace

void publishDefinitions(const std::string& homePath, const fs::path& file) {
  const Home home = openHome(homePath);
  if (isLink(file)) refuse(fmt::format("{} is a link; name the file itself", file.string()));
  if (!isFile(file) || ::access(file.c_str(), R_OK) != 0) {
    refuse(fmt::format("{} is not a file that can be read by {}", file.string(), ownName()));
  }
  refuseInHome(file, home);
  const Workplace work = Workplace::inHome(home);
  const std::string privateKey = requireKey(home);
  const std::string content = readToPublish(file, home);
  if (content.empty()) {
    refuse(
        fmt::format("{} is empty, and an empty definitions file means withdrawal", file.string()),
        fmt::format("if that is meant: tarnwick-publish --home {} withdraw", homePath));
  }
  if (isPublishedAlready(home, content)) {
    say("Nothing new: this definitions file is published already.");
    return;
  }
  const std::string tried = tryWithClamav(file, content, work);
  publishPair(home, work, content, privateKey);
  noteEvent(home, "definitions",
            {{"bytes", static_cast<std::int64_t>(content.size())}, {"sha256", digestOf(content)}});
  say(fmt::format("Published {}, {}, {}.", fileName,
                  counted(static_cast<std::int64_t>(content.size()), "byte"), tried));
}

void withdrawDefinitions(const std::string& homePath) {
  const Home home = openHome(homePath);
  const Workplace work = Workplace::inHome(home);
  const std::string privateKey = requireKey(home);
  if (isPublishedAlready(home, "")) {
    say(fmt::format("Nothing new: {} is withdrawn already.", fileName));
    return;
  }
  publishPair(home, work, "", privateKey);
  noteEvent(home, "withdraw", {});
  say(fmt::format("Withdrew {}; installations delete theirs at their next run.", fileName));
}

}  // namespace tarnwick::publisher
