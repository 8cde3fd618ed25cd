#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// The exit status that callers know: a plain shift of the raw wait status. -1, a shell that could
/// not be started, stays -1; a shell that a signal killed gives 0.
int shiftedStatus(int rawStatus);

/// Runs `freshclam`, then once more after each repair that its exit status asks for, in the order
/// of the ladder. Requires that the log is handed over: `freshclam` writes to it alone. Returns the
/// last raw wait status.
int runFreshclamWithRepairs(RunContext& context);

}  // namespace tarnwick
