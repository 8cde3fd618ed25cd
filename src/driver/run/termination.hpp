#pragma once

#include <sys/types.h>

#include "driver/run/run_context.hpp"

namespace tarnwick {

/// Ends the run with status 255 on a termination signal, after killing every running `freshclam`.
/// Neither waits for nor cleans up what was interrupted. Safe at any moment: it calls nothing but
/// what a signal handler may.
[[noreturn]] void killFreshclamAndExit(int signalNumber);

/// While it lives, killFreshclamAndExit handles signals 15, 2, 3 and 6, and a closed standard
/// output is no signal but a failed write. When it goes the run is over: a signal that comes too
/// late no longer changes how it ended. `context` must outlive it.
class TerminationHandlers {
 public:
  explicit TerminationHandlers(const RunContext& context);
  TerminationHandlers(const TerminationHandlers&) = delete;
  TerminationHandlers& operator=(const TerminationHandlers&) = delete;
  ~TerminationHandlers();
};

/// Ends this process group too when a termination signal comes; 0 for none.
void endWithThisRun(pid_t group);

/// Keeps the termination signals back while it lives.
class TerminationDelay {
 public:
  TerminationDelay();
  TerminationDelay(const TerminationDelay&) = delete;
  TerminationDelay& operator=(const TerminationDelay&) = delete;
  ~TerminationDelay();
};

}  // namespace tarnwick
