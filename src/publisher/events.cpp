#include "publisher/events.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>

#include "base/disk_sync.hpp"
#include "base/file_descriptor.hpp"
#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/owner.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

std::string now() {
  constexpr std::size_t longest = 32;
  std::array<char, longest> text{};
  const std::time_t moment = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&moment, &parts);
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {text.data(), length};
}

/// The user, and in whose name by sudo.
std::string whoDidIt() {
  const char* const caller =
      std::getenv("SUDO_USER");  // NOLINT(concurrency-mt-unsafe): not set here
  const std::string own = ownName();
  return caller != nullptr && own != caller ? fmt::format("{} (for {})", own, caller) : own;
}

Json eventOf(const std::string& what, const Json::Object& facts) {
  Json::Object event{{"time", now()}, {"event", what}, {"by", whoDidIt()}};
  event.insert(event.end(), facts.begin(), facts.end());
  return event;
}

fs::path logOf(const Home& home) {
  return home.folder / "publishing.log";
}

}  // namespace

void noteEvent(const Home& home, const std::string& what, const Json::Object& facts) {
  constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const FileDescriptor log(::open(logOf(home).c_str(), flags, 0644));
  const bool done = log.isOpen() && writeFully(log.get(), textOf(eventOf(what, facts)) + "\n") &&
                    syncToDisk(log.get());
  if (!done) sayWrong(fmt::format("{} cannot be written; this is not kept", logOf(home).string()));
}

void callHooks(const Home& home, const Workplace& work, const std::string& what,
               const Json::Object& facts) {
  constexpr std::chrono::seconds limit(600);
  const fs::path event = work.folder() / "event";
  for (const fs::path& hook : entriesOf(home.folder / "hooks")) {
    if (!isFile(hook) || ::access(hook.c_str(), X_OK) != 0) continue;
    write(event, textOf(eventOf(what, facts)) + "\n");
    const FileDescriptor input(::open(event.c_str(), O_RDONLY | O_CLOEXEC));
    ChildRun run = work.run(hook.string(), {what}, home.folder);
    run.input = input.get();
    run.limit = limit;
    const ChildEnd end = runChild(run);
    if (end.isGood()) continue;
    sayWrong(fmt::format("hooks/{} failed with status {}: {}", hook.filename().string(), end.status,
                         presentable(firstLine(end.output))));
  }
}

void printLog(const std::string& homePath, bool json) {
  const Home home = openHome(homePath);
  const std::string text = contentOf(logOf(home)).value_or("");
  for (const std::string_view line : split(text, '\n')) {
    if (line.empty()) continue;
    if (json) {
      say(line);
      continue;
    }
    std::string told;
    for (const auto& [key, value] : fieldsOf(std::string(line))) {
      const bool plain = key == "time" || key == "event";
      told += told.empty() ? "" : " ";
      told += plain ? value : fmt::format("{}={}", key, value);
    }
    say(withoutControls(told));
  }
}

}  // namespace tarnwick::publisher
