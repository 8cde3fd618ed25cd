#include "publisher/copy_to_server.hpp"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "base/text_rules.hpp"
#include "publisher/child.hpp"
#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

using Words = std::vector<std::string>;

/// The files must be readable there by nginx, whatever the umask, and dated as here; they belong to
/// the user who logs in.
Words rsyncArguments(const Home& home, const std::string& place, int silence, const Words& step) {
  Words words{"-rpt",
              "-s",
              "--relative",
              "--omit-dir-times",
              "--chmod=D755,F644",
              "--fsync",
              fmt::format("--timeout={}", silence)};
  words.insert(words.end(), step.begin(), step.end());
  words.push_back(home.folder.string() + "/./site/");
  if (!entriesOf(home.mirror).empty()) words.push_back(home.folder.string() + "/./mirror/");
  words.push_back(place + "/");
  return words;
}

std::string shellFor(int silence) {
  const char* const given = std::getenv("RSYNC_RSH");  // NOLINT(concurrency-mt-unsafe): not changed
  if (given != nullptr && *given != '\0') return given;
  return fmt::format(
      "ssh -o BatchMode=yes -o LogLevel=ERROR -o ConnectTimeout={} -o ServerAliveInterval={} "
      "-o ServerAliveCountMax=1",
      silence, silence);
}

/// ssh frames what it says of a changed host key.
bool isOrnament(std::string_view line) {
  return line.find_first_not_of("@ \r") == std::string_view::npos;
}

struct Trouble {
  std::string_view sign;
  std::string_view remedy;
};

constexpr std::array troubles{
    Trouble{"HOST IDENTIFICATION HAS CHANGED",
            "its host key is another than before: ask its owner; if that is right, remove the old "
            "one (ssh-keygen -R HOST) and log in once"},
    Trouble{
        "Host key verification failed",
        "its host key is not in known_hosts: log in once by hand, as the owner of the home, and "
        "compare it"},
    Trouble{"Permission denied (", "the owner of the home needs a key of its own there"},
    Trouble{"No such file or directory", "make the folder in which the home is to lie there"},
    Trouble{"Permission denied", "give the folder there to the user who logs in"},
    Trouble{"Could not resolve hostname", "no address is known for this name"},
    Trouble{"rsync: command not found", "install rsync there"},
    Trouble{"rsync: not found", "install rsync there"},
};

std::optional<std::string> remedyFor(std::string_view said) {
  for (const Trouble& trouble : troubles) {
    if (said.find(trouble.sign) != std::string_view::npos) return std::string(trouble.remedy);
  }
  return std::nullopt;
}

std::string firstWordOf(const std::string& said) {
  for (const std::string_view line : split(said, '\n')) {
    if (!isOrnament(line)) return presentable(line);
  }
  return {};
}

/// The name on a line of rsync's listing: behind rights, size, day and time.
std::string nameListed(std::string_view line) {
  constexpr int fieldsBefore = 4;
  for (int field = 0; field < fieldsBefore; ++field) {
    const std::size_t end = line.find(' ');
    const std::size_t next = line.find_first_not_of(' ', end);
    if (end == std::string_view::npos || next == std::string_view::npos) return {};
    line.remove_prefix(next);
  }
  return presentable(line);
}

}  // namespace

std::vector<std::string> namesInSite(const std::string& place, int silence) {
  const ChildEnd end = runChild(
      {.program = "rsync",
       .arguments = {"--list-only", "-s", fmt::format("--timeout={}", silence), place + "/site/"},
       .environment = {{"RSYNC_RSH", shellFor(silence)}}});
  std::vector<std::string> names;
  if (!end.isGood()) return names;
  for (const std::string_view line : split(end.output, '\n')) {
    const std::string name = nameListed(line);
    if (!name.empty() && name != ".") names.push_back(name);
  }
  return names;
}

CopyResult copyToServer(const Home& home, const std::string& place, int silence) {
  const std::string record = "--exclude=/mirror/dns.txt";
  const std::array<Words, 4> steps{
      Words{"--partial-dir=.rsync-partial", record},
      Words{"--links", "--include=*/", "--include=current", "--exclude=*"},
      Words{"--links", record}, Words{"--links", "--delete-after"}};
  for (const Words& step : steps) {
    const ChildEnd end = runChild({.program = "rsync",
                                   .arguments = rsyncArguments(home, place, silence, step),
                                   .environment = {{"RSYNC_RSH", shellFor(silence)}},
                                   .output = ChildOutput::errors});
    if (end.isGood()) continue;
    return {.done = false, .why = firstWordOf(end.output), .remedy = remedyFor(end.output)};
  }
  return {.done = true, .why = {}, .remedy = {}};
}

}  // namespace tarnwick::publisher
