#pragma once

#include <string>
#include <vector>

#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// Where `push` copies to, and where it then asks.
struct PushServer {
  std::string place;  ///< as rsync takes it
  std::string url;    ///< empty where none is known
};

/// The servers of these words, or else those that the home's own list names. Throws Misuse.
std::vector<PushServer> serversOf(const std::vector<std::string>& words, const Home& home);

}  // namespace tarnwick::publisher
