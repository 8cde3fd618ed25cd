#include "driver/network_wait.hpp"

#include <chrono>
#include <thread>

#include "driver/console.hpp"
#include "platform/platform.hpp"

namespace tarnwick {

bool isNetworkReachable() {
  return platform::defaultRouteIsUsable();
}

bool waitForNetwork(const RunContext& context) {
  constexpr int retries = 3;
  if (isNetworkReachable()) return true;
  for (int retry = 0; retry < retries; ++retry) {
    printMessage(context, "No internet connection available. Trying again in 5 seconds...");
    std::this_thread::sleep_for(std::chrono::seconds(5));
    if (isNetworkReachable()) return true;
  }
  printMessage(context, "No internet connection available. Giving up.");
  return false;
}

}  // namespace tarnwick
