#include "publisher/release.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <limits>

#include "base/text_rules.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/events.hpp"
#include "publisher/key.hpp"
#include "publisher/next_version.hpp"
#include "publisher/owner.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/signature_folder.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

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

std::int64_t nextNumber(std::int64_t version, const ReleaseOptions& options) {
  // ClamAV 1.5 loads no larger one.
  constexpr std::int64_t largest = std::numeric_limits<std::uint32_t>::max();
  if (options.after && *options.after < version) {
    refuse(fmt::format("version {} is out here already; --after needs a later one", version));
  }
  const std::int64_t next = options.after.value_or(version) + 1;
  if (next > largest) refuse(fmt::format("version {} is more than ClamAV can count", next));
  return next;
}

/// What was released, or would be.
struct Summary {
  std::int64_t version;
  std::int64_t signatures;
  LineChanges changes;
  std::int64_t scriptBytes;
  std::int64_t containerBytes;
  std::string digest;
};

Summary summaryOf(const NextVersion& next, std::int64_t number) {
  return {.version = number,
          .signatures = next.signatureCount(),
          .changes = next.changes(),
          .scriptBytes = static_cast<std::int64_t>(next.scriptSize()),
          .containerBytes = static_cast<std::int64_t>(next.containerSize()),
          .digest = next.digest()};
}

Json::Object factsOf(const Summary& summary) {
  return {{"version", summary.version},          {"signatures", summary.signatures},
          {"added", summary.changes.added},      {"removed", summary.changes.removed},
          {"script_bytes", summary.scriptBytes}, {"container_bytes", summary.containerBytes},
          {"container_sha256", summary.digest}};
}

std::string lineOf(const Summary& summary) {
  const std::string script =
      summary.scriptBytes > 0 ? fmt::format("script {}, ", sizeInWords(summary.scriptBytes)) : "";
  return fmt::format("Changes: +{} -{} signatures, {}container {}", summary.changes.added,
                     summary.changes.removed, script, sizeInWords(summary.containerBytes));
}

/// What a vendor would hardly want, although ClamAV takes it.
void refuseLikelyMistake(const Summary& summary) {
  constexpr std::int64_t bearable = 10;  // one in so many
  const LineChanges& changes = summary.changes;
  std::string why;
  if (!changes.lostKind.empty()) {
    why = fmt::format("it has no signatures of the kind .{} any more", changes.lostKind);
  } else if (changes.removed * bearable > changes.before) {
    why = fmt::format("it takes away {} of {}", changes.removed,
                      counted(changes.before, "signature"));
  } else if (summary.scriptBytes > summary.containerBytes) {
    why = fmt::format("its script ({}) is larger than its container ({})",
                      sizeInWords(summary.scriptBytes), sizeInWords(summary.containerBytes));
  } else {
    return;
  }
  refuse(fmt::format("version {} is not released: {}", summary.version, why),
         "if that is meant: release --force");
}

void tellJson(const Json::Object& facts, bool released) {
  Json::Object told{{"released", released}};
  told.insert(told.end(), facts.begin(), facts.end());
  say(indentedTextOf(told));
}

void publish(const ReleaseStart& start, const ReleaseOptions& options) {
  NextVersion next(start);
  if (next.isNothingNew() && !options.after) {
    if (options.json) return tellJson({{"version", start.version}}, false);
    return say(
        fmt::format("Nothing new: version {} holds exactly these signatures.", start.version));
  }
  if (!options.json) {
    for (const std::string& remark : start.signatures.remarks()) say(remark);
  }
  next.build();
  next.tryAndCompare();
  const Summary summary = summaryOf(next, start.number);
  const Json::Object facts = factsOf(summary);
  if (!options.json && start.version > 0) say(lineOf(summary));
  if (!options.force && start.version > 0) refuseLikelyMistake(summary);
  if (options.dryRun) {
    if (options.json) return tellJson(facts, false);
    return say(fmt::format("Not released: version {} with {}, by --dry-run.", summary.version,
                           counted(summary.signatures, "signature")));
  }
  next.putInPlace();
  sweepOthers(start.home.releases, start.home.scripted / "current");
  noteEvent(start.home, "release", facts);
  if (options.json) {
    tellJson(facts, true);
  } else {
    say(fmt::format("Released version {} with {}.", summary.version,
                    counted(summary.signatures, "signature")));
  }
  callHooks(start.home, start.work, "release", facts);
}

}  // namespace

void release(const std::string& homePath, const fs::path& folder, const ReleaseOptions& options) {
  const Home home = openHome(homePath);
  requireReadableFolder(folder);
  const Workplace work = Workplace::inHome(home);
  std::string privateKey = requireKey(home);
  const std::int64_t version = publishedVersion(home, work);
  const std::int64_t number = nextNumber(version, options);
  sweepOthers(home.releases, home.scripted / "current");
  const SignatureFolder signatures(folder, home);
  const ReleaseStart start{.home = home,
                           .work = work,
                           .signatures = signatures,
                           .privateKey = std::move(privateKey),
                           .published = version > 0 ? publishedFiles(home) : FileSet(),
                           .version = version,
                           .number = number};
  publish(start, options);
}

}  // namespace tarnwick::publisher
