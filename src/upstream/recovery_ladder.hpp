#pragma once

#include "driver/exit_status.hpp"
#include "driver/run_context.hpp"

namespace tarnwick {

/// Runs `freshclam`, then once more after each repair that its exit status asks for, in the order
/// of the ladder. Requires that the log is handed over: `freshclam` writes to it alone. Returns
/// the status of its last run.
[[nodiscard]] ExitStatus runFreshclamWithRepairs(RunContext& context);

}  // namespace tarnwick
