#include "publisher/status.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "base/text_rules.hpp"
#include "publisher/at_once.hpp"
#include "publisher/container.hpp"
#include "publisher/disk.hpp"
#include "publisher/json.hpp"
#include "publisher/published.hpp"
#include "publisher/refusal.hpp"
#include "publisher/served_check.hpp"
#include "publisher/served_files.hpp"
#include "publisher/servers.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

std::int64_t ageOf(const fs::path& file) {
  return std::max<std::int64_t>(std::time(nullptr) - dateOf(file), 0);
}

std::string inWords(std::int64_t seconds) {
  constexpr std::int64_t minute = 60;
  constexpr std::int64_t hour = 3600;
  constexpr std::int64_t day = 86400;
  if (seconds < 2 * hour) return counted(seconds / minute, "minute");
  return seconds < 2 * day ? counted(seconds / hour, "hour") : counted(seconds / day, "day");
}

struct ServerState {
  std::string version;  ///< as it announces it; empty when it does not
  std::string why;      ///< when it does not
};

ServerState askState(const Home& home, const SiteValues& values, const PushServer& server) {
  if (server.url.empty()) return {.version = {}, .why = "no URL is given"};
  Findings findings;
  ServedFiles files(home, values, hostInUrl(server.url), findings);
  files.fetch(versionFileName);
  if (const auto version = announcedVersion(files.read(versionFileName))) {
    return {.version = std::to_string(*version), .why = {}};
  }
  constexpr std::string_view damaged = "Damaged: ";
  const std::string said = findings.lines().empty() ? "" : findings.lines().front();
  return {.version = {}, .why = said.substr(std::min(said.size(), damaged.size()))};
}

std::vector<ServerState> askAll(const Home& home, const SiteValues& values,
                                const std::vector<PushServer>& servers) {
  std::vector<ServerState> states(servers.size());
  atOnce(servers.size(), [&](std::size_t number) {
    try {
      states[number] = askState(home, values, servers[number]);
    } catch (const std::exception& error) {
      states[number].why = error.what();
    }
  });
  return states;
}

Json::Object containerFacts(const Home& home) {
  const fs::path container = home.scripted / "VestRUM.cud";
  const auto header = headerOfFile(container);
  const std::int64_t version = header ? header->version : 0;
  return {{"version", version},
          {"signatures", header ? parseInteger(header->signatures()) : 0},
          {"container_bytes", static_cast<std::int64_t>(sizeOf(container))},
          {"age_seconds", version > 0 ? ageOf(container) : 0},
          {"oldest_script_from", version > 0 ? oldestVersion(home) : 0}};
}

Json::Object definitionsFacts(const Home& home) {
  const fs::path file = home.tree / "Vestrum.database";
  return {{"published", isFile(file)},
          {"bytes", static_cast<std::int64_t>(sizeOf(file))},
          {"age_seconds", isFile(file) ? ageOf(file) : 0}};
}

Json::List mirrorFacts(const Home& home) {
  Json::List databases;
  for (const fs::path& file : entriesOf(home.mirror)) {
    const auto header = headerOfFile(file);
    if (!header || file.extension() != ".cvd") continue;
    databases.emplace_back(Json::Object{{"name", file.stem().string()},
                                        {"version", header->version},
                                        {"age_seconds", ageOf(file)}});
  }
  return databases;
}

Json::List serverFacts(const std::vector<PushServer>& servers,
                       const std::vector<ServerState>& states) {
  Json::List list;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    list.emplace_back(Json::Object{{"server", servers[i].place},
                                   {"version", parseInteger(states[i].version)},
                                   {"why", states[i].why}});
  }
  return list;
}

void tellHome(const Home& home) {
  const auto header = headerOfFile(home.scripted / "VestRUM.cud");
  if (!header) {
    say("Nothing is released yet.");
  } else {
    const fs::path container = home.scripted / "VestRUM.cud";
    const std::int64_t oldest = oldestVersion(home);
    say(fmt::format("Version {} with {}, {}, {} old; {} from version {} on.", header->version,
                    counted(parseInteger(header->signatures()), "signature"),
                    sizeInWords(static_cast<std::int64_t>(sizeOf(container))),
                    inWords(ageOf(container)), counted(header->version - oldest, "script"),
                    oldest));
  }
  const fs::path definitions = home.tree / "Vestrum.database";
  if (isFile(definitions)) {
    say(fmt::format("Definitions file: {}, {} old.",
                    sizeOf(definitions) > 0
                        ? sizeInWords(static_cast<std::int64_t>(sizeOf(definitions)))
                        : "withdrawn",
                    inWords(ageOf(definitions))));
  }
  for (const fs::path& file : entriesOf(home.mirror)) {
    const std::int64_t version = file.extension() == ".cvd" ? versionOfFile(file) : 0;
    if (version == 0) continue;
    say(fmt::format("Mirror: {} {}, {} old.", file.stem().string(), version, inWords(ageOf(file))));
  }
}

std::vector<PushServer> knownServers(const Home& home, const Invocation& invocation) {
  if (invocation.words.empty() && !isFile(home.pushServers)) return {};
  return serversOf(invocation.words, home);
}

}  // namespace

void printStatus(const std::string& homePath, const Invocation& invocation) {
  const Home home = openHome(homePath);
  const SiteValues values = siteValues(home, invocation);
  const std::vector<PushServer> servers = knownServers(home, invocation);
  for (const PushServer& server : servers) {
    if (!server.url.empty()) requireUrl("status", server.url);
  }
  const std::vector<ServerState> states = askAll(home, values, servers);
  if (invocation.has("--json")) {
    say(indentedTextOf(Json::Object{{"home", home.folder.string()},
                                    {"container", containerFacts(home)},
                                    {"definitions", definitionsFacts(home)},
                                    {"mirror", mirrorFacts(home)},
                                    {"servers", serverFacts(servers, states)}}));
    return;
  }
  tellHome(home);
  for (std::size_t i = 0; i < servers.size(); ++i) {
    say(fmt::format("Server {}: {}", servers[i].place,
                    states[i].version.empty() ? "not known: " + states[i].why
                                              : "version " + states[i].version));
  }
}

}  // namespace tarnwick::publisher
