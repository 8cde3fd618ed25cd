#include "publisher/push.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <thread>

#include "base/text_rules.hpp"
#include "publisher/check.hpp"
#include "publisher/copy_to_server.hpp"
#include "publisher/disk.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/served_check.hpp"
#include "publisher/servers.hpp"

namespace tarnwick::publisher {
namespace {

int silenceOf(const Invocation& invocation) {
  constexpr int usual = 60;
  constexpr std::size_t mostDigits = 5;
  const auto text = invocation.value("--timeout");
  if (!text) return usual;
  if (text->empty() || text->size() > mostDigits || text->front() == '0' ||
      text->find_first_not_of("0123456789") != std::string::npos) {
    throw Misuse("push: --timeout needs seconds, not " + *text);
  }
  return static_cast<int>(parseInteger(*text));
}

/// What is damaged here would be damaged everywhere. Returns the version.
std::int64_t refuseToPushDamage(const Home& home, const Workplace& work) {
  const std::int64_t version = publishedVersion(home, work);
  if (version == 0) refuseUnreleased(home);
  Findings findings;
  checkPublic(home, work, findings);
  if (!isFolder(home.tree / "current") && !entriesOf(home.definitions).empty()) {
    findings.damage("the definitions file is out of sight; publish or withdraw it again");
  }
  findings.print();
  if (findings.damages() > 0) {
    refuse(fmt::format("{} found; nothing is pushed", counted(findings.damages(), "thing")));
  }
  return version;
}

/// To all at once.
std::vector<CopyResult> copyToAll(const Home& home, const std::vector<PushServer>& servers,
                                  int silence) {
  std::vector<CopyResult> results(servers.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    threads.emplace_back([&home, &servers, &results, silence, i] {
      results[i] = copyToServer(home, servers[i].place, silence);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < servers.size(); ++i) {
    if (results[i].done) continue;
    say(fmt::format("Not pushed: {}: {}", servers[i].place, results[i].why));
    if (results[i].remedy) say(fmt::format("  {}", *results[i].remedy));
  }
  return results;
}

/// What they serve now, if anything is known of where. Returns how many are sound.
std::int64_t askThosePushedTo(const std::vector<PushServer>& servers,
                              const std::vector<CopyResult>& results,
                              const ServedStandard& standard) {
  std::vector<std::string> urls;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    if (results[i].done && !servers[i].url.empty()) urls.push_back(servers[i].url);
  }
  const std::vector<ServerAnswer> answers = askServers(urls, standard);
  std::int64_t sound = 0;
  std::size_t asked = 0;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    if (!results[i].done) continue;
    if (servers[i].url.empty()) {
      say(fmt::format("Not asked: {}, for which no URL is given", servers[i].place));
      ++sound;
      continue;
    }
    const ServerAnswer& answer = answers[asked++];
    answer.findings.print();
    if (answer.findings.damages() == 0) ++sound;
    for (const std::string& remedy : answer.remedies) say("  " + remedy);
  }
  return sound;
}

}  // namespace

void push(const std::string& homePath, const Invocation& invocation) {
  const Home home = openHome(homePath);
  const int silence = silenceOf(invocation);
  const std::vector<PushServer> servers = serversOf(invocation.words, home);
  const SiteValues values = siteValues(home, invocation);
  for (const PushServer& server : servers) {
    if (!server.url.empty()) requireUrl("push", server.url);
  }
  if (!findProgram("rsync")) refuse("rsync is missing; install rsync");
  std::int64_t version = 0;
  std::vector<CopyResult> results;
  {
    const Workplace work = Workplace::inHome(home);
    version = refuseToPushDamage(home, work);
    results = copyToAll(home, servers, silence);
  }
  // Nobody who publishes waits for servers that are asked.
  const Workplace work = Workplace::elsewhere();
  const ServedStandard standard{.tree = {.home = home,
                                         .work = work,
                                         .publicKey = contentOf(home.publicKey).value_or(""),
                                         .oldest = oldestVersion(home),
                                         .newestKnown = version},
                                .values = values,
                                .version = version,
                                .here = Findings()};
  const std::int64_t sound = askThosePushedTo(servers, results, standard);
  const auto count = static_cast<std::int64_t>(servers.size());
  if (sound != count) {
    refuse(fmt::format("version {} is on {} of {}; push again when the others are well", version,
                       sound, counted(count, "server")));
  }
  say(fmt::format("Version {} is on {}.", version, counted(sound, "server")));
}

}  // namespace tarnwick::publisher
