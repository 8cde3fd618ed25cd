#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "publisher/command_line.hpp"
#include "publisher/findings.hpp"
#include "publisher/site.hpp"
#include "publisher/tree_check.hpp"

namespace tarnwick::publisher {

/// What servers are compared with: the home as it is now.
struct ServedStandard {
  TreeStandard tree;
  const SiteValues& values;
  std::int64_t version = 0;
  Findings here;  ///< what is wrong with the tree in the home, and so with an equal copy
};

/// What came of asking one server.
struct ServerAnswer {
  Findings findings;
  std::int64_t version = 0;  ///< 0 when none could be had
  std::vector<std::string> remedies;
};

/// Checks for a COMMAND whether such a URL could be asked at all: throws Misuse.
void requireUrl(const std::string& command, const std::string& url);

/// The HOST or HOST:PORT of a URL that requireUrl lets pass.
std::string hostInUrl(const std::string& url);

/// Asks all servers at once, each by its URL. The answers come in the same order. Each is told when
/// it has come, one at a time.
using AnswerTaker = std::function<void(std::size_t number, const ServerAnswer& answer)>;
std::vector<ServerAnswer> askServers(const std::vector<std::string>& urls,
                                     const ServedStandard& standard, const AnswerTaker& told);

/// What to do about what was found, a line each; without anything special, that to copy again.
std::vector<std::string> remediesOf(const std::vector<ServerAnswer>& answers);

/// `check --from`.
void checkServed(const std::string& homePath, const Invocation& invocation);

}  // namespace tarnwick::publisher
