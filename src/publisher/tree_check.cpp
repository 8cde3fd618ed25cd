#include "publisher/tree_check.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "base/text_rules.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/script_walk.hpp"
#include "transfer/signing/dsa_verifier.hpp"

namespace tarnwick::publisher {
namespace {

/// A published file, and whether it may be tried: of a server's only what fits its signature.
struct Pair {
  std::optional<std::string> content;
  bool fits = false;
};

/// A published file and its signature, which are of no use without each other.
Pair checkPair(const PublishedTree& tree, const std::string& name, const std::string& publicKey,
               Findings& findings) {
  auto content = tree.read(name);
  const auto signature = tree.read(name + ".signature");
  if (!content && !signature) {
    findings.damage(name + " is missing");
  } else if (!content) {
    findings.damage(name + " is missing, and its signature is there");
  } else if (content->empty() && name.ends_with(".script")) {
    findings.damage(name + " is empty");
  } else if (!signature) {
    findings.damage(name + " has no signature");
  } else if (!textIsSigned(*content, *signature, publicKey)) {
    findings.damage(name + " does not fit its signature");
  } else {
    return {.content = std::move(content), .fits = true};
  }
  return {.content = std::move(content), .fits = false};
}

bool mayBeTried(const Pair& pair, const TreeStandard& standard) {
  return pair.fits || !standard.newestKnown;
}

std::string announcedBy(const PublishedTree& tree) {
  constexpr std::size_t shown = 99;
  const auto content = tree.read(versionFileName);
  if (!content) return "nothing";
  std::string text = replaced(content->substr(0, shown), std::string_view("\0", 1), "");
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

/// Its version, 0 when it has none. Damage that only the trial can show comes later.
std::int64_t checkContainer(const PublishedTree& tree, const std::optional<std::string>& container,
                            Findings& findings) {
  if (!container) return 0;
  const auto header = headerOf(*container);
  if (!header) {
    findings.damage("VestRUM.cud has no header of a container");
    return 0;
  }
  const std::string announced = announcedBy(tree);
  if (announced != fmt::format("VestRUM:{}", header->version)) {
    findings.damage(
        fmt::format("VestRUM-db-version.txt says \"{}\", and the container is version {}",
                    announced, header->version));
  }
  return header->version;
}

void judgeTrial(const ChildEnd& trial, Findings& findings) {
  switch (verdictOf(trial)) {
    case Verdict::good:
      return;
    case Verdict::refused:
      return findings.damage("VestRUM.cud: " + whyRefused(trial));
    case Verdict::unloadable:
      return findings.damage("ClamAV cannot load VestRUM.cud");
  }
}

/// The first script that is not there, or 0.
std::int64_t checkScriptFiles(const PublishedTree& tree, const TreeStandard& standard,
                              std::int64_t version, Findings& findings) {
  std::int64_t gap = 0;
  for (std::int64_t number = standard.oldest + 1; number <= version; ++number) {
    const Pair script = checkPair(tree, scriptName(number), standard.publicKey, findings);
    const bool tried = script.content && !script.content->empty() && mayBeTried(script, standard);
    if (gap == 0 && !tried) gap = number;
  }
  return gap;
}

/// Every installation is at some version since the oldest kept, or fetches the whole container; all
/// of them follow the scripts to the newest, so one walk from the oldest meets each of their steps.
void checkScripts(const PublishedTree& tree, const TreeStandard& standard, const Pair& container,
                  std::int64_t version, Findings& findings) {
  std::int64_t gap = checkScriptFiles(tree, standard, version, findings);
  const auto first = unpackFile(standard.home.firstContainer);
  if (!first) {
    findings.damage("first.cud cannot be unpacked, so no script can be tried");
    return;
  }
  const ScriptWalk walk = walkScripts(*first, tree, standard.oldest, gap != 0 ? gap - 1 : version);
  if (!walk.result) {
    gap = walk.stoppedAt;
    findings.damage(fmt::format("{} does not apply to version {}", scriptName(gap), gap - 1));
  }
  if (gap != 0) {
    if (gap != version) {
      findings.note(
          fmt::format("Not tried: the scripts after {}, which need its result", scriptName(gap)));
    }
  } else if (mayBeTried(container, standard) && unpack(*container.content) != walk.result) {
    findings.damage("the scripts lead to something else than VestRUM.cud");
  }
}

}  // namespace

std::int64_t checkTree(const PublishedTree& tree, const TreeStandard& standard,
                       Findings& findings) {
  const Pair container = checkPair(tree, "VestRUM.cud", standard.publicKey, findings);
  const std::int64_t version = checkContainer(tree, container.content, findings);
  if (version > 0) {
    // The scanner loads the container while the scripts are tried.
    std::optional<Child> trial;
    if (mayBeTried(container, standard)) trial.emplace(trialOf(tree.container, standard.work));
    Findings scripts = findings.ofTheSamePlace();
    if (version <= standard.newestKnown.value_or(version)) {
      checkScripts(tree, standard, container, version, scripts);
    }
    if (trial) judgeTrial(trial->wait(), findings);
    findings.append(scripts);
  }
  if (isFolder(standard.home.tree / "current")) {
    checkPair(tree, "Vestrum.database", standard.publicKey, findings);
  }
  return version;
}

}  // namespace tarnwick::publisher
