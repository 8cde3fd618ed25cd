#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "publisher/home.hpp"
#include "publisher/servers.hpp"
#include "publisher/site.hpp"

namespace tarnwick::publisher {

/// What `push` compares servers with before it copies anything.
struct PushIntent {
  const Home& home;
  const SiteValues& values;
  std::string publicKey;
  std::int64_t version = 0;
  int silence = 60;  ///< seconds after which a server has failed
};

/// Why nothing may be copied to servers: one has a higher version than the home, or the same
/// version signed over something else, or a folder site/ that is not the kit's. A line for each,
/// and what to do. All are asked at once; a server that does not answer raises no objection.
std::vector<std::string> objectionsOf(const std::vector<PushServer>& servers,
                                      const PushIntent& intent);

}  // namespace tarnwick::publisher
