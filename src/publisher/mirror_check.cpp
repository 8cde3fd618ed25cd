#include "publisher/mirror_check.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>

#include "base/text_rules.hpp"
#include "publisher/container.hpp"
#include "publisher/detached_signature.hpp"
#include "publisher/disk.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view patchEnding = ".cdiff";

bool isNumber(std::string_view text) {
  constexpr std::size_t mostDigits = 18;
  return !text.empty() && text.size() <= mostDigits &&
         text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Every client that is not too far behind asks for each patch up to the newest.
void checkPatches(const Home& home, const std::string& name, std::int64_t newest,
                  Findings& findings) {
  const auto patches = patchesOf(home, name);
  const std::int64_t oldest = patches.empty() ? newest : std::min(newest, patches.back());
  for (std::int64_t number = std::max<std::int64_t>(oldest, 2); number <= newest; ++number) {
    const std::string patch = fmt::format("{}-{}{}", name, number, patchEnding);
    if (!isThere(home.mirror / patch)) findings.damage("mirror/" + patch + " is missing");
  }
}

/// What `mirror` put in place.
void checkMirrored(const Home& home, const Workplace& work, Findings& findings) {
  const fs::path current = home.mirror / "current";
  if (!isLink(current) || !isFolder(current)) {
    findings.damage("mirror/current is no link to a set; fill the mirror again");
    return;
  }
  for (const fs::path& file : entriesOf(current)) {
    const std::string name = file.filename();
    checkLink(home.mirror / name, findings);
    if (!name.ends_with(".cvd")) continue;
    if (isGoodContainer(file, work)) {
      checkPatches(home, file.stem(), versionOfFile(file), findings);
    } else {
      findings.damage("mirror/" + name + " does not fit ClamAV's signature");
    }
  }
}

/// Machines that are promised more than there is end in an error.
void checkRecord(const Home& home, Findings& findings) {
  struct Place {
    std::size_t field;
    const char* name;
  };
  const std::string text = contentOf(home.mirror / "dns.txt").value_or("");
  const std::vector<std::string_view> record =
      split(std::string_view(text).substr(0, text.find('\n')), ':');
  for (const Place& place : {Place{1, "main"}, Place{2, "daily"}, Place{7, "bytecode"}}) {
    if (place.field >= record.size() || !isNumber(record[place.field])) continue;
    const std::int64_t there = versionOfFile(home.mirror / fmt::format("{}.cvd", place.name));
    if (parseInteger(record[place.field]) > there) {
      findings.damage(fmt::format("mirror/dns.txt promises {} {}, and there is {}", place.name,
                                  record[place.field], there));
    }
  }
}

bool hasEndingOfContainer(const std::string& name) {
  return name.ends_with(".cvd") || name.ends_with(".cld") || name.ends_with(".cud");
}

void checkMirrorFile(const fs::path& file, Findings& findings) {
  const std::string name = file.filename();
  if (name.ends_with(patchEnding) && name.find('-') != std::string::npos) {
    if (sizeOf(file) > 0 && !namesItsVersion(file)) {
      findings.damage("mirror/" + name + " is no patch to that version");
    }
  } else if (sizeOf(file) == 0) {
    findings.damage("mirror/" + name + " is empty");
  } else if (name.ends_with(".sign") && !looksLikeSignature(file)) {
    findings.damage("mirror/" + name + " is no signature");
  } else if (hasEndingOfContainer(name) && !headerOfFile(file)) {
    findings.damage("mirror/" + name + " has no header of a container");
  }
}

}  // namespace

bool isGoodContainer(const fs::path& container, const Workplace& work) {
  if (!headerOfFile(container)) return false;
  const ChildEnd end = runChild(work.run("sigtool", {"--info=" + container.string()}));
  const auto lines = split(end.output, '\n');
  return std::ranges::any_of(
      lines, [](std::string_view line) { return line.starts_with("Verification OK"); });
}

bool namesItsVersion(const fs::path& patch) {
  constexpr std::size_t looked = 64;
  const std::string stem = patch.stem();
  const std::string number = stem.substr(stem.rfind('-') + 1);
  const std::string start =
      replaced(contentOf(patch).value_or("").substr(0, looked), std::string_view("\0", 1), "");
  return start.starts_with(fmt::format("ClamAV-Diff:{}:", number));
}

std::vector<std::int64_t> patchesOf(const Home& home, const std::string& name) {
  std::vector<std::int64_t> versions;
  for (const fs::path& entry : entriesOf(home.mirror)) {
    const std::string file = entry.filename();
    if (!file.starts_with(name + "-") || !file.ends_with(patchEnding)) continue;
    const std::string number =
        file.substr(name.size() + 1, file.size() - name.size() - 1 - patchEnding.size());
    if (isNumber(number)) versions.push_back(parseInteger(number));
  }
  std::ranges::sort(versions, std::greater());
  return versions;
}

void checkMirror(const Home& home, const Workplace& work, Findings& findings) {
  for (const fs::path& file : entriesOf(home.mirror)) {
    if (isFile(file)) checkMirrorFile(file, findings);
  }
  if (isThere(home.mirror / "current") || isLink(home.mirror / "dns.txt")) {
    checkMirrored(home, work, findings);
  }
  checkRecord(home, findings);
}

void checkLink(const fs::path& link, Findings& findings) {
  const std::string name = link.filename();
  if (targetOf(link) == "current/" + name) return;
  findings.damage(fmt::format("{} is no link to current/{}", name, name));
}

}  // namespace tarnwick::publisher
