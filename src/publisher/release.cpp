#include "publisher/release.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <optional>

#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/key.hpp"
#include "publisher/owner.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/signature_folder.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// One release on its way.
class NextVersion {
 public:
  NextVersion(const Home& home, const Workplace& work, const SignatureFolder& signatures,
              std::int64_t number)
      : home_(home), work_(work), signatures_(signatures), number_(number) {}

  void build();
  /// The scanner loads the container while sigtool compares it with the one before: neither needs
  /// the other, and with many signatures both take long.
  void tryAndCompare(const FileSet& published, const std::string& privateKey) const;
  void putInPlace(const std::string& privateKey) const;

 private:
  void buildScript(const FileSet& published, const std::string& privateKey) const;
  void tryScript(const FileSet& published) const;
  [[nodiscard]] fs::path path(const char* name) const { return work_.folder() / name; }
  [[nodiscard]] fs::path scriptFile() const { return path("script") / scriptName(number_); }

  const Home& home_;
  const Workplace& work_;
  const SignatureFolder& signatures_;
  std::int64_t number_;
  FileSet built_;
};

void NextVersion::build() {
  layOut(signatures_.joined(), path("new"));
  // An empty data directory, or sigtool counts on from a container it finds there.
  makeFolder(path("empty"));
  ChildRun run =
      work_.run("sigtool",
                {"--build=VestRUM.cud", "--unsigned", fmt::format("--cvd-version={}", number_),
                 "--no-cdiff", "--datadir=../empty"},
                path("new"));
  run.environment["SIGNDUSER"] = "vestrum";
  const ChildEnd end = runChild(run);
  if (!end.isGood()) signatures_.refuseFor(number_, end.output);
  auto built = unpackFile(path("new") / "VestRUM.cud");
  if (!built)
    refuse(fmt::format("sigtool built no container; version {} is not released", number_));
  built_ = std::move(*built);
  signatures_.requireAllIn(built_);
}

void NextVersion::tryAndCompare(const FileSet& published, const std::string& privateKey) const {
  Child trial(trialOf(path("new") / "VestRUM.cud", work_));
  if (number_ > 1) buildScript(published, privateKey);
  const ChildEnd end = trial.wait();
  if (!end.isGood()) {
    refuse(fmt::format("version {} is not released: {}", number_, whyRefused(end)));
  }
}

void NextVersion::buildScript(const FileSet& published, const std::string& privateKey) const {
  makeFolder(path("old"));
  makeFolder(path("script"));
  const auto content = contentOf(home_.scripted / "VestRUM.cud");
  write(path("old") / "VestRUM.cud", content.value_or(""));
  // sigtool holds the second path in a few bytes and cuts longer ones: short relative paths only.
  const ChildEnd end =
      runChild(work_.run("sigtool", {"--diff", "old/VestRUM.cud", "new/VestRUM.cud"}));
  const fs::path made = path("new") / scriptName(number_);
  if (!end.isGood() || !isFile(made)) {
    refuse(fmt::format("no script leads from version {} to {}; it is not released", number_ - 1,
                       number_),
           presentable(end.output));
  }
  moveOver(made, scriptFile());
  tryScript(published);
  syncPath(scriptFile());
  signFile(scriptFile(), privateKey);
}

/// By the program that applies it on every machine. sigtool's word is not enough: on a full disk it
/// says so of an empty script.
void NextVersion::tryScript(const FileSet& published) const {
  layOut(published, path("published"));
  const ChildEnd end =
      runChild(work_.run("sigtool", {"--run-cdiff=" + scriptFile().string()}, path("published")));
  if (end.isGood() && filesOf(path("published")) == built_) return;
  refuse(fmt::format("the script from version {} to {} does not lead there; it is not released",
                     number_ - 1, number_));
}

/// Nothing is visible before the version file says so, and that, the container and its signature
/// become visible together.
void NextVersion::putInPlace(const std::string& privateKey) const {
  const fs::path set = path("release");
  makeFolder(set);
  moveOver(path("new") / "VestRUM.cud", set / "VestRUM.cud");
  syncPath(set / "VestRUM.cud");
  signFile(set / "VestRUM.cud", privateKey);
  writeSynced(set / "VestRUM-db-version.txt", fmt::format("VestRUM:{}\n", number_));
  if (number_ > 1) {
    dateAfter(set, home_.scripted / "current");
    const std::string signature = scriptFile().string() + ".signature";
    moveOver(signature, home_.scripted / (scriptName(number_) + ".signature"));
    moveOver(scriptFile(), home_.scripted / scriptName(number_));
  }
  syncPath(set);
  moveOver(set, home_.releases / std::to_string(number_));
  showRelease(home_, work_, number_);
}

bool isUnchanged(const FileSet& joined, FileSet published) {
  published.erase("VestRUM.info");
  return joined == published;
}

FileSet publishedFiles(const Home& home) {
  auto files = unpackFile(home.scripted / "VestRUM.cud");
  if (!files) {
    refuse("the published container cannot be unpacked",
           fmt::format("put back from a copy what is damaged: tarnwick-publish --home {} check",
                       home.folder.string()));
  }
  return std::move(*files);
}

void requireReadableFolder(const fs::path& folder) {
  if (isFolder(folder) && ::access(folder.c_str(), R_OK | X_OK) == 0) return;
  refuse(fmt::format("{} is not a folder of signature files that can be read by {}",
                     folder.string(), ownName()));
}

}  // namespace

void release(const std::string& homePath, const fs::path& folder) {
  const Home home = openHome(homePath);
  requireReadableFolder(folder);
  const Workplace work = Workplace::inHome(home);
  const std::string privateKey = requireKey(home);
  const std::int64_t version = publishedVersion(home, work);
  sweepOthers(home.releases, home.scripted / "current");
  const SignatureFolder signatures(folder, home);
  const FileSet published = version > 0 ? publishedFiles(home) : FileSet();
  for (const std::string& remark : signatures.remarks()) say(remark);
  if (version > 0 && isUnchanged(signatures.joined(), published)) {
    say(fmt::format("Nothing new: version {} holds exactly these signatures.", version));
    return;
  }
  NextVersion next(home, work, signatures, version + 1);
  next.build();
  next.tryAndCompare(published, privateKey);
  next.putInPlace(privateKey);
  sweepOthers(home.releases, home.scripted / "current");
  const auto header = headerOfFile(home.scripted / "VestRUM.cud");
  const std::string count = header ? header->signatures() : "0";
  say(fmt::format("Released version {} with {} signature{}.", version + 1, count,
                  count == "1" ? "" : "s"));
}

}  // namespace tarnwick::publisher
