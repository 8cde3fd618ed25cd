#include "publisher/served_check.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>

#include "base/text_rules.hpp"
#include "publisher/at_once.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/served_files.hpp"
#include "transfer/signing/dsa_verifier.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view scheme = "https://";

void fetchPair(ServedFiles& files, const std::string& name) {
  files.fetch(name);
  files.fetch(name + ".signature");
}

void fetchAll(ServedFiles& files, const ServedStandard& standard) {
  fetchPair(files, "VestRUM.cud");
  for (std::int64_t number = standard.tree.oldest + 1; number <= standard.version; ++number) {
    fetchPair(files, scriptName(number));
  }
  if (!isFolder(standard.tree.home.tree / "current")) return;
  fetchPair(files, "Vestrum.database");
  files.checkDate("Vestrum.database");
}

/// What fits the vendor's signature, and is not what is published here under that name.
void compareWithHere(const ServedFiles& files, const ServedStandard& standard, std::int64_t version,
                     Findings& findings) {
  std::vector<std::string> names{"Vestrum.database"};
  if (version == standard.version) names.emplace_back("VestRUM.cud");
  for (std::int64_t number = standard.tree.oldest + 1; number <= standard.version; ++number) {
    names.push_back(scriptName(number));
  }
  for (const std::string& name : names) {
    if (!files.has(name) || files.isAsHere(name)) continue;
    const auto signature = files.read(name + ".signature");
    if (signature &&
        textIsSigned(files.read(name).value_or(""), *signature, standard.tree.publicKey)) {
      findings.damage(name + " is signed, and another than here");
    }
  }
}

/// What differs from the home is walked like a home of its own.
std::int64_t checkOther(const ServedFiles& files, const ServedStandard& standard,
                        std::size_t number, Findings& findings) {
  const fs::path folder = standard.tree.work.folder() / fmt::format("served.{}", number);
  makeFolder(folder);
  const fs::path container = folder / "VestRUM.cud";
  if (const auto content = files.read("VestRUM.cud")) write(container, *content);
  const PublishedTree tree{.read = [&files](const std::string& name) { return files.read(name); },
                           .container = container};
  const std::int64_t version = checkTree(tree, standard.tree, findings);
  compareWithHere(files, standard, version, findings);
  return version;
}

std::vector<std::string> remedyFor(const std::string& server,
                                   const std::optional<HttpFailure>& failure) {
  if (!failure) return {};
  switch (*failure) {
    case HttpFailure::certificate:
      return {
          fmt::format("{}: have its certificate signed for the machines' hosts by an authority "
                      "that they know, or renew it; CURL_CA_BUNDLE names a private authority",
                      server)};
    case HttpFailure::name:
      return {fmt::format("{}: no address is known for this name; put it into DNS", server)};
    case HttpFailure::other:
      return {fmt::format("{}: see whether its nginx runs, and can be reached from here", server)};
  }
  return {};
}

void askOne(const std::string& url, const ServedStandard& standard, std::size_t number,
            ServerAnswer& answer) {
  const std::string server = hostInUrl(url);
  answer.findings = Findings(server + ": ");
  ServedFiles files(standard.tree.home, standard.values, server, answer.findings);
  files.fetch(versionFileName);
  if (!files.has(versionFileName)) {
    answer.remedies = remedyFor(server, files.failure());
    return;
  }
  files.checkGuards();
  fetchAll(files, standard);
  if (files.isAsHere()) {
    answer.version = standard.version;
    answer.findings.appendAsOurs(standard.here);
  } else {
    answer.version = checkOther(files, standard, number, answer.findings);
    if (files.failure() != HttpFailure::other) {
      answer.remedies = remedyFor(server, files.failure());
    }
  }
  if (answer.version != standard.version) {
    answer.findings.damage(fmt::format("version {} is served, and version {} is published",
                                       answer.version, standard.version));
  }
}

void askSafely(const std::string& url, const ServedStandard& standard, std::size_t number,
               ServerAnswer& answer) {
  try {
    askOne(url, standard, number, answer);
  } catch (const std::exception& error) {
    answer.findings.damage(error.what());
  }
}

std::vector<std::string> urlsOf(const Invocation& invocation) {
  std::vector<std::string> urls = invocation.options.at("--from");
  for (const std::string& word : invocation.words) {
    if (!word.starts_with(scheme)) throw Misuse("check: no such option: " + word);
    urls.push_back(word);
  }
  for (const std::string& url : urls) requireUrl("check: --from", url);
  return urls;
}

/// Returns how many damages there are.
std::int64_t tellAnswers(const std::vector<std::string>& urls,
                         const std::vector<ServerAnswer>& answers, bool json) {
  std::int64_t damages = 0;
  Json::List servers;
  for (std::size_t i = 0; i < urls.size(); ++i) {
    Json::Object facts{{"server", urls[i]}};
    const Json::Object found = factsOf(answers[i].findings, answers[i].version);
    facts.insert(facts.end(), found.begin(), found.end());
    servers.emplace_back(std::move(facts));
    damages += answers[i].findings.damages();
    if (!json) answers[i].findings.print();
  }
  if (json) say(indentedTextOf(Json::Object{{"servers", std::move(servers)}}));
  return damages;
}

}  // namespace

std::string hostInUrl(const std::string& url) {
  return replaced(std::string_view(url).substr(scheme.size()), "/", "");
}

void requireUrl(const std::string& command, const std::string& url) {
  constexpr std::string_view allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  std::string_view rest = url;
  const bool secure = rest.starts_with(scheme);
  if (secure) rest.remove_prefix(scheme.size());
  if (rest.ends_with('/')) rest.remove_suffix(1);
  const std::size_t colon = rest.find(':');
  const std::string_view host = rest.substr(0, colon);
  const std::string_view port = colon == std::string_view::npos ? "1" : rest.substr(colon + 1);
  if (!secure || host.empty() || host.find_first_not_of(allowed) != std::string_view::npos ||
      port.empty() || port.find_first_not_of("0123456789") != std::string_view::npos) {
    throw Misuse(fmt::format("{} wants https://HOST, not {}", command, url));
  }
}

std::vector<ServerAnswer> askServers(const std::vector<std::string>& urls,
                                     const ServedStandard& standard, const AnswerTaker& told) {
  std::vector<ServerAnswer> answers(urls.size());
  std::mutex oneAtATime;
  atOnce(urls.size(), [&](std::size_t number) {
    askSafely(urls[number], standard, number, answers[number]);
    const std::lock_guard guard(oneAtATime);
    told(number, answers[number]);
  });
  return answers;
}

std::vector<std::string> remediesOf(const std::vector<ServerAnswer>& answers) {
  std::vector<std::string> remedies;
  for (const ServerAnswer& answer : answers) {
    remedies.insert(remedies.end(), answer.remedies.begin(), answer.remedies.end());
  }
  return remedies;
}

void checkServed(const std::string& homePath, const Invocation& invocation) {
  const Home home = openHome(homePath);
  const std::vector<std::string> urls = urlsOf(invocation);
  const SiteValues values = siteValues(home, invocation);
  // Servers may take their time; nobody who publishes waits for them.
  const Workplace work = Workplace::elsewhere();
  const std::int64_t version = versionOfFile(home.scripted / "VestRUM.cud");
  if (version == 0) refuseUnreleased(home);
  ServedStandard standard{.tree = {.home = home,
                                   .work = work,
                                   .publicKey = contentOf(home.publicKey).value_or(""),
                                   .oldest = oldestVersion(home),
                                   .newestKnown = version},
                          .values = values,
                          .version = version,
                          .here = Findings()};
  TreeStandard ofHome = standard.tree;
  ofHome.newestKnown.reset();
  checkTree(treeOf(home), ofHome, standard.here);
  const std::vector<ServerAnswer> answers =
      askServers(urls, standard, [](std::size_t, const ServerAnswer&) {});
  const std::int64_t damages = tellAnswers(urls, answers, invocation.has("--json"));
  if (damages == 0 && invocation.has("--json")) return;
  if (damages == 0) {
    say(fmt::format("All is well: version {} from {}.", version,
                    counted(static_cast<std::int64_t>(urls.size()), "server")));
    return;
  }
  std::vector<std::string> remedies = remediesOf(answers);
  const std::string found = counted(damages, "thing") + " found";
  if (remedies.empty()) {
    refuse(found + "; copy the public tree to that server again");
  }
  remedies.insert(remedies.begin(), found);
  throw Refusal(remedies);
}

}  // namespace tarnwick::publisher
