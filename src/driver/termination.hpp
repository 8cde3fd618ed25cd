#pragma once

#include <sys/types.h>

#include "driver/run_context.hpp"
#include "driver/spawn_attributes.hpp"

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

 private:
  SpawnAttributes childAttributes_;  ///< for the handler, which could not make them
};

/// Makes a termination signal end this child too, and all that it has started; 0 for none. The
/// child must not be waited for before it is withdrawn.
void endWithThisRun(pid_t command);

}  // namespace tarnwick
