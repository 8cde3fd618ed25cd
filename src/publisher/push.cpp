#include "publisher/push.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>

#include "base/text_rules.hpp"
#include "publisher/at_once.hpp"
#include "publisher/check.hpp"
#include "publisher/container.hpp"
#include "publisher/copy_to_server.hpp"
#include "publisher/disk.hpp"
#include "publisher/events.hpp"
#include "publisher/mirror_check.hpp"
#include "publisher/published.hpp"
#include "publisher/push_questions.hpp"
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

/// What came of one server.
struct Outcome {
  CopyResult copy;
  bool asked = false;
  ServerAnswer answer;

  [[nodiscard]] bool isSound() const {
    return copy.done && (!asked || answer.findings.damages() == 0);
  }
};

/// One push.
class Push {
 public:
  Push(const Home& home, const Invocation& invocation)
      : home_(home),
        quiet_(invocation.has("--json")),
        dryRun_(invocation.has("--dry-run")),
        silence_(silenceOf(invocation)),
        servers_(serversOf(invocation.words, home)),
        values_(siteValues(home, invocation)),
        outcomes_(servers_.size()) {
    for (const PushServer& server : servers_) {
      if (!server.url.empty()) requireUrl("push", server.url);
    }
    if (invocation.has("--first")) {
      if (invocation.words.empty()) throw Misuse("push: --first needs a SERVER");
      left_ = serversOf({}, home).size();
      left_ -= std::min(left_, servers_.size());
    }
  }

  void run();

 private:
  void refuseObjections() const;
  void refuseDamage(const Workplace& work);
  void copyToAll();
  void askAll(const Workplace& work);
  void tellCopy(std::size_t number) const;
  void tellAnswer(std::size_t number) const;
  void conclude(const Workplace& work) const;
  [[nodiscard]] Json::Object facts() const;
  [[nodiscard]] std::int64_t soundServers() const {
    return std::ranges::count_if(outcomes_, &Outcome::isSound);
  }
  /// What is pushed, as the subject of a sentence.
  [[nodiscard]] std::string subject() const {
    return version_ > 0 ? fmt::format("version {}", version_) : "the mirror";
  }
  void tell(const std::string& line) const {
    if (!quiet_) say(line);
  }

  const Home& home_;
  bool quiet_;
  bool dryRun_;
  int silence_;
  std::vector<PushServer> servers_;
  SiteValues values_;
  std::vector<Outcome> outcomes_;
  std::size_t left_ = 0;  ///< servers that a first push leaves to the next
  std::int64_t version_ = 0;
};

void Push::refuseObjections() const {
  const std::vector<std::string> objections =
      objectionsOf(servers_, {.home = home_,
                              .values = values_,
                              .publicKey = contentOf(home_.publicKey).value_or(""),
                              .version = versionOfFile(home_.scripted / "VestRUM.cud"),
                              .silence = silence_});
  if (objections.empty()) return;
  for (const std::string& line : objections) tell(line);
  refuse("nothing is pushed; see above");
}

/// What is damaged here would be damaged everywhere. A home may have a mirror alone.
void Push::refuseDamage(const Workplace& work) {
  Findings findings;
  if (!isAnythingReleased(home_) && !entriesOf(home_.mirror).empty()) {
    checkMirror(home_, work, findings);
  } else {
    version_ = publishedVersion(home_, work);
    if (version_ == 0) refuseUnreleased(home_);
    checkPublic(home_, work, findings);
  }
  if (!isFolder(home_.tree / "current") && !entriesOf(home_.definitions).empty()) {
    findings.damage("the definitions file is out of sight; publish or withdraw it again");
  }
  if (!quiet_) findings.print();
  if (findings.damages() > 0) {
    refuse(fmt::format("{} found; nothing is pushed", counted(findings.damages(), "thing")));
  }
}

void Push::tellCopy(std::size_t number) const {
  const CopyResult& copy = outcomes_[number].copy;
  if (copy.done && servers_[number].url.empty()) {
    tell(fmt::format("Not asked: {}, for which no URL is given", servers_[number].place));
  } else if (!copy.done) {
    tell(fmt::format("Not pushed: {}: {}", servers_[number].place, copy.why));
    if (copy.remedy) tell("  " + *copy.remedy);
  }
}

void Push::copyToAll() {
  std::mutex oneAtATime;
  atOnce(servers_.size(), [this, &oneAtATime](std::size_t number) {
    outcomes_[number].copy = copyToServer(home_, servers_[number].place, silence_);
    const std::lock_guard guard(oneAtATime);
    tellCopy(number);
  });
}

void Push::tellAnswer(std::size_t number) const {
  const ServerAnswer& answer = outcomes_[number].answer;
  if (answer.findings.damages() == 0) {
    tell(fmt::format("Pushed: {} serves version {}", servers_[number].place, answer.version));
    return;
  }
  for (const std::string& line : answer.findings.lines()) tell(line);
  for (const std::string& remedy : answer.remedies) tell("  " + remedy);
}

/// What they serve now, if anything is known of where.
void Push::askAll(const Workplace& work) {
  std::vector<std::string> urls;
  std::vector<std::size_t> numbers;
  for (std::size_t i = 0; i < servers_.size() && version_ > 0; ++i) {
    if (!outcomes_[i].copy.done || servers_[i].url.empty()) continue;
    urls.push_back(servers_[i].url);
    numbers.push_back(i);
  }
  const ServedStandard standard{.tree = {.home = home_,
                                         .work = work,
                                         .publicKey = contentOf(home_.publicKey).value_or(""),
                                         .oldest = oldestVersion(home_),
                                         .newestKnown = version_},
                                .values = values_,
                                .version = version_,
                                .here = Findings()};
  askServers(urls, standard, [&](std::size_t number, const ServerAnswer& answer) {
    Outcome& outcome = outcomes_[numbers[number]];
    outcome.asked = true;
    outcome.answer = answer;
    tellAnswer(numbers[number]);
  });
}

Json::Object Push::facts() const {
  Json::List servers;
  for (std::size_t i = 0; i < servers_.size(); ++i) {
    const Outcome& outcome = outcomes_[i];
    Json::List found;
    for (const std::string& line : outcome.answer.findings.lines()) found.emplace_back(line);
    servers.emplace_back(Json::Object{{"server", servers_[i].place},
                                      {"pushed", outcome.copy.done},
                                      {"sound", outcome.isSound()},
                                      {"asked", outcome.asked},
                                      {"version", outcome.answer.version},
                                      {"why", outcome.copy.why},
                                      {"found", std::move(found)}});
  }
  return {{"version", version_}, {"sound", soundServers()}, {"servers", std::move(servers)}};
}

void Push::conclude(const Workplace& work) const {
  const auto count = static_cast<std::int64_t>(servers_.size());
  const std::int64_t sound = soundServers();
  noteEvent(home_, "push", {{"version", version_}, {"servers", count}, {"sound", sound}});
  callHooks(home_, work, "push", facts());
  if (quiet_) say(indentedTextOf(facts()));
  if (sound != count) {
    refuse(fmt::format("{} is on {} of {}; push again when the others are well", subject(), sound,
                       counted(count, "server")));
  }
  std::string line = fmt::format("{} is on {}.", subject(), counted(sound, "server"));
  line.front() = line.front() == 'v' ? 'V' : 'T';
  tell(line);
  if (left_ > 0) {
    tell(fmt::format("The next push goes on to the other {}.", left_));
  }
}

void Push::run() {
  refuseObjections();
  {
    const Workplace work = Workplace::inHome(home_);
    refuseDamage(work);
    if (dryRun_) {
      for (const PushServer& server : servers_) {
        tell(fmt::format("Not pushed: {}, by --dry-run", server.place));
      }
      return;
    }
    copyToAll();
  }
  // No command that publishes waits for servers that are asked.
  const Workplace work = Workplace::elsewhere();
  askAll(work);
  conclude(work);
}

}  // namespace

void push(const std::string& homePath, const Invocation& invocation) {
  const Home home = openHome(homePath);
  Push push(home, invocation);
  if (!findProgram("rsync")) refuse("rsync is missing; install rsync");
  push.run();
}

}  // namespace tarnwick::publisher
