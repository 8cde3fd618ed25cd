#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Whether the machine has a usable default route. Sends no packet.
[[nodiscard]] bool isNetworkReachable();

/// Tests up to four times, five seconds apart, and prints each failure. False if every test fails.
[[nodiscard]] bool waitForNetwork(const RunContext& context);

}  // namespace tarnwick
