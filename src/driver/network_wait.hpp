#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// One test: whether the machine has a usable default route. Sends nothing.
bool isNetworkReachable();

/// Tests up to four times, five seconds apart, and says so. False when there is still no network.
bool waitForNetwork(const RunContext& context);

}  // namespace tarnwick
