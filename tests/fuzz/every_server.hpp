#pragma once

#include <cstdlib>

#include "testbed/loopback_server.hpp"

namespace tarnwick::fuzz {

/// What stands for every server there is: it is the user's proxy, so that a request comes here
/// whatever address an answer leads to. A client that waits for more than it got sends no request,
/// and is given up after two milliseconds.
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
