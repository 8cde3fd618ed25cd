#include "publisher/next_version.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/key.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "transfer/signing/file_digest.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

}  // namespace

NextVersion::NextVersion(const ReleaseStart& start)
    : start_(start), files_(inPublishedOrder(start.signatures.joined(), start.published)) {}

fs::path NextVersion::scriptFile() const {
  return path("script") / scriptName(start_.number);
}

bool NextVersion::isNothingNew() const {
  if (start_.version == 0 || files_.size() + 1 != start_.published.size()) return false;
  return std::ranges::all_of(files_, [this](const auto& file) {
    const auto published = start_.published.find(file.first);
    return published != start_.published.end() && published->second == file.second;
  });
}

ChildEnd NextVersion::buildContainer() const {
  // A level that every ClamAV has: an older one would call itself outdated because of a newer.
  constexpr int level = 60;
  ChildRun run = start_.work.run(
      "sigtool",
      {"--build=VestRUM.cud", "--unsigned", fmt::format("--cvd-version={}", start_.number),
       fmt::format("--flevel={}", level), "--no-cdiff", "--datadir=../empty"},
      path("new"));
  run.environment["SIGNDUSER"] = "vestrum";
  return runChild(run);
}

void NextVersion::build() {
  layOut(files_, path("new"));
  // An empty data directory, or sigtool counts on from a container it finds there.
  makeFolder(path("empty"));
  ChildEnd end = buildContainer();
  // One in 256 builds of ClamAV 1.5 fails, by a digest that depends on the second.
  constexpr int tries = 3;
  for (int i = 1;
       i < tries && !end.isGood() && firstError(end.output).find("MD5") != std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    end = buildContainer();
  }
  if (!end.isGood()) start_.signatures.refuseFor(start_.number, end.output, files_);
  auto built = unpackFile(container());
  if (!built) {
    refuse(fmt::format("sigtool built no container; version {} is not released", start_.number));
  }
  built_ = std::move(*built);
  start_.signatures.requireAllIn(built_);
}

void NextVersion::tryAndCompare() const {
  Child trial(trialOf(container(), start_.work));
  if (hasScript()) buildScript();
  const ChildEnd end = trial.wait();
  if (!end.isGood()) {
    refuse(fmt::format("version {} is not released: {}", start_.number, whyRefused(end)));
  }
}

void NextVersion::buildScript() const {
  makeFolder(path("old"));
  makeFolder(path("script"));
  write(path("old") / "VestRUM.cud", contentOf(start_.home.scripted / "VestRUM.cud").value_or(""));
  // sigtool holds the second path in a few bytes and cuts longer ones: short relative paths only.
  const ChildEnd end =
      runChild(start_.work.run("sigtool", {"--diff", "old/VestRUM.cud", "new/VestRUM.cud"}));
  const fs::path made = path("new") / scriptName(start_.number);
  if (!end.isGood() || !isFile(made)) {
    refuse(fmt::format("no script leads from version {} to {}; it is not released", start_.version,
                       start_.number),
           presentable(end.output));
  }
  moveOver(made, scriptFile());
  tryScript();
  syncPath(scriptFile());
  signFile(scriptFile(), start_.privateKey);
}

/// By the program that applies it on every machine. sigtool's word is not enough: on a full disk it
/// says so of an empty script.
void NextVersion::tryScript() const {
  layOut(start_.published, path("published"));
  const ChildEnd end = runChild(
      start_.work.run("sigtool", {"--run-cdiff=" + scriptFile().string()}, path("published")));
  if (end.isGood() && filesOf(path("published")) == built_) return;
  refuse(fmt::format("the script from version {} to {} does not lead there; it is not released",
                     start_.version, start_.number));
}

/// No script leads to this version: it is the first of a new row.
void NextVersion::beginAnew() const {
  const fs::path first = path("first");
  copySynced(start_.home.scripted / "VestRUM.cud", first);
  moveOver(first, start_.home.firstContainer);
  syncPath(start_.home.folder);
  for (const fs::path& entry : entriesOf(start_.home.scripted)) {
    if (versionOfScriptName(entry.filename()) > 0) removeFile(entry);
  }
  syncPath(start_.home.scripted);
}

void NextVersion::putInPlace() const {
  const Home& home = start_.home;
  const fs::path set = path("release");
  makeFolder(set);
  moveOver(container(), set / "VestRUM.cud");
  syncPath(set / "VestRUM.cud");
  signFile(set / "VestRUM.cud", start_.privateKey);
  writeSynced(set / versionFileName, fmt::format("VestRUM:{}\n", start_.number));
  if (start_.version > 0) dateAfter(set, home.scripted / "current");
  if (hasScript()) {
    const std::string signature = scriptFile().string() + ".signature";
    moveOver(signature, home.scripted / (scriptName(start_.number) + ".signature"));
    moveOver(scriptFile(), home.scripted / scriptName(start_.number));
  }
  syncPath(set);
  moveOver(set, home.releases / std::to_string(start_.number));
  showRelease(home, start_.work, start_.number);
  if (!hasScript() && start_.number > 1) beginAnew();
}

LineChanges NextVersion::changes() const {
  return lineChanges(start_.published, built_);
}

std::uintmax_t NextVersion::containerSize() const {
  return sizeOf(container());
}

std::uintmax_t NextVersion::scriptSize() const {
  return sizeOf(scriptFile());
}

std::int64_t NextVersion::signatureCount() const {
  const auto header = headerOfFile(container());
  return header ? parseInteger(header->signatures()) : 0;
}

std::string NextVersion::digest() const {
  const auto digest = digestOfFile(container(), crypto::DigestAlgorithm::sha256);
  return digest ? hexadecimal(*digest) : "";
}

}  // namespace tarnwick::publisher
