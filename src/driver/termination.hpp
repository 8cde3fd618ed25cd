#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Ends the run with status 255 on a termination signal, after killing every running `freshclam`.
/// Neither waits for nor cleans up what was interrupted. Safe at any moment: it calls nothing but
/// what a signal handler may.
[[noreturn]] void killFreshclamAndExit(int signalNumber);

/// Makes killFreshclamAndExit the handler of signals 15, 2, 3 and 6. `context` must outlive the
/// process's last signal. A closed standard output is from here on no signal but a failed write.
void installTerminationHandlers(const RunContext& context);

}  // namespace tarnwick
