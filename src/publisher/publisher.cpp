#include "publisher/publisher.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <system_error>

#include "base/file_descriptor.hpp"
#include "base/standard_streams.hpp"
#include "base/text_rules.hpp"
#include "publisher/check.hpp"
#include "publisher/command_line.hpp"
#include "publisher/definitions.hpp"
#include "publisher/disk.hpp"
#include "publisher/events.hpp"
#include "publisher/init.hpp"
#include "publisher/mirror.hpp"
#include "publisher/owner.hpp"
#include "publisher/prune.hpp"
#include "publisher/push.hpp"
#include "publisher/refusal.hpp"
#include "publisher/release.hpp"
#include "publisher/served_check.hpp"
#include "publisher/site.hpp"
#include "publisher/status.hpp"
#include "publisher/usage.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// As the shell sees it from here: who carries out the command may stand elsewhere.
std::string seenFromAnywhere(const std::string& path) {
  if (!isThere(path)) return path;
  std::error_code ignored;
  if (isFolder(path)) return fs::canonical(path, ignored).string();
  // Not the file itself, which is refused where it is a link.
  const fs::path absolute = fs::absolute(path);
  return (fs::canonical(absolute.parent_path(), ignored) / absolute.filename()).string();
}

/// The value of an option that must be a number of a few digits.
std::optional<std::int64_t> numberOf(const Invocation& invocation, const std::string& option,
                                     std::string_view needed) {
  constexpr std::size_t mostDigits = 10;
  const auto text = invocation.value(option);
  if (!text) return std::nullopt;
  if (text->empty() || text->size() > mostDigits ||
      text->find_first_not_of("0123456789") != std::string::npos) {
    throw Misuse(fmt::format("{}: {} needs {}, not {}", invocation.command, option, needed, *text));
  }
  return parseInteger(*text);
}

void releaseAsTold(const Invocation& invocation, const std::string& home) {
  release(home, invocation.words.front(),
          {.after = numberOf(invocation, "--after", "a version"),
           .force = invocation.has("--force"),
           .dryRun = invocation.has("--dry-run"),
           .json = invocation.has("--json")});
}

void pruneAsTold(const Invocation& invocation, const std::string& home) {
  expectWords(invocation, 0);
  prune(home, numberOf(invocation, "--keep", "a number"));
}

void checkAsTold(const Invocation& invocation, const std::string& home) {
  if (invocation.has("--from")) return checkServed(home, invocation);
  if (!invocation.words.empty()) {
    throw Misuse("check: no such option: " + invocation.words.front());
  }
  checkHome(home, numberOf(invocation, "--max-age", "days"), invocation.has("--json"));
}

void siteAsTold(const Invocation& invocation, const std::string& home) {
  if (!invocation.words.empty()) {
    throw Misuse("site: no such option: " + invocation.words.front());
  }
  printSite(home, invocation);
}

struct Command {
  std::string_view name;
  Access access;
  std::size_t words;
  void (*run)(const Invocation& invocation, const std::string& home);
};

constexpr std::size_t anyWords = static_cast<std::size_t>(-1);

constexpr std::array commands{
    Command{"init", Access::owner, 0,
            [](const Invocation&, const std::string& home) { makeHome(home); }},
    Command{"release", Access::owner, 1, releaseAsTold},
    Command{"status", Access::reader, anyWords,
            [](const Invocation& invocation, const std::string& home) {
              printStatus(home, invocation);
            }},
    Command{"log", Access::reader, 0,
            [](const Invocation& invocation, const std::string& home) {
              printLog(home, invocation.has("--json"));
            }},
    Command{"definitions", Access::owner, 1,
            [](const Invocation& invocation, const std::string& home) {
              publishDefinitions(home, invocation.words.front());
            }},
    Command{"withdraw", Access::owner, 0,
            [](const Invocation&, const std::string& home) { withdrawDefinitions(home); }},
    Command{"check", Access::reader, anyWords, checkAsTold},
    Command{"prune", Access::owner, anyWords, pruneAsTold},
    Command{"mirror", Access::owner, 0,
            [](const Invocation&, const std::string& home) { mirror(home); }},
    Command{"push", Access::owner, anyWords,
            [](const Invocation& invocation, const std::string& home) { push(home, invocation); }},
    Command{"site", Access::reader, anyWords, siteAsTold},
};

void makeFolderOfHome(const std::string& home) {
  std::error_code error;
  fs::create_directories(home, error);
  if (!error) return;
  refuse(fmt::format("{} cannot be made; choose another folder with --home", home),
         fmt::format("or let root make it yours first: install -d -o {} {}", ownName(), home));
}

/// The home that is meant, as a path that holds from anywhere.
std::string homeOf(const Invocation& invocation) {
  if (invocation.command == "init" && !invocation.home) {
    throw Misuse("init needs --home DIR: the folder that is to hold the private key");
  }
  std::string given = invocation.home.value_or(".");
  std::error_code ignored;
  if (fs::weakly_canonical(given, ignored).string().find_first_of("*?[]\\") != std::string::npos) {
    throw Misuse("the path of a home must not hold any of * ? [ ] \\");
  }
  return given;
}

void carryOut(Invocation invocation, std::string& home) {
  const auto* const command =
      std::ranges::find(commands, std::string_view(invocation.command), &Command::name);
  std::string given = homeOf(invocation);
  if (command->words != anyWords) expectWords(invocation, command->words);
  for (std::string& word : invocation.words) {
    if (command->words == 1) word = seenFromAnywhere(word);
  }
  if (invocation.command == "init") {
    given = fs::absolute(given).lexically_normal().string();
    stepDownToMaker(given);
    makeFolderOfHome(given);
  }
  home = locate(given).folder.string();
  stepDownToOwner(home, command->access);
  command->run(invocation, home);
}

/// On a full disk anything goes wrong somehow, and what is said of it misleads.
bool toldOfFullDisk(const std::string& home) {
  if (home.empty() || !diskIsFull(home)) return false;
  sayWrong(fmt::format("the disk that holds {} is full; nothing is half published", home));
  sayWrong("make room, then do the same again");
  return true;
}

int runSafely(int argc, const char* const* argv, std::string& home) {
  try {
    const Invocation invocation = parseCommandLine(argc, argv);
    if (invocation.help) {
      writeToStandardOutput(usageOf(invocation.command));
    } else {
      carryOut(invocation, home);
    }
    return 0;
  } catch (const Misuse& misuse) {
    sayWrong(misuse.line());
    static_cast<void>(writeFully(STDERR_FILENO, "Try \"tarnwick-publish --help\".\n"));
    return 2;
  } catch (const Refusal& refusal) {
    if (toldOfFullDisk(home)) return 1;
    for (const std::string& line : refusal.lines()) sayWrong(line);
  } catch (const std::exception& error) {
    if (toldOfFullDisk(home)) return 1;
    sayWrong(error.what());
    sayWrong("stopped by what is said above; nothing is half published");
  }
  return 1;
}

}  // namespace

int runPublisher(int argc, const char* const* argv) {
  keepStandardDescriptorsOpen();
  ::umask(022);
  ::setenv("LC_ALL", "C", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread yet
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  // A caller that ignores it would otherwise keep us from learning how our children ended.
  static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
  std::string home;
  return runSafely(argc, argv, home);
}

}  // namespace tarnwick::publisher
