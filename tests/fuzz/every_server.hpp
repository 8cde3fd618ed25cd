#pragma once

#include <cstdlib>

#include "testbed/loopback_server.hpp"

namespace tarnwick::fuzz {

/// A server that answers for all servers: it is the user's proxy, so every request comes here,
/// also after a redirect. It closes a connection without a request after two milliseconds, because
/// the client may be waiting for the rest of an incomplete answer.
inline testbed::LoopbackServer& everyServer() {
  static testbed::LoopbackServer* const started = [] {
    auto* const made = new testbed::LoopbackServer({}, 2);
    for (const char* name : {"http_proxy", "https_proxy"}) ::setenv(name, made->url().c_str(), 1);
    for (const char* name : {"no_proxy", "NO_PROXY"}) ::unsetenv(name);
    return made;
  }();
  return *started;
}

}  // namespace tarnwick::fuzz
