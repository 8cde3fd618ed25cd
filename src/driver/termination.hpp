#pragma once

#include <sys/types.h>

#include "driver/run_context.hpp"
#include "driver/spawn_attributes.hpp"

namespace tarnwick {

/// Ends the run with status 255 on a termination signal, after ending the run's own child with its
/// descendants and killing every running `freshclam`. Neither waits for nor cleans up what was
/// interrupted. Calls only functions that are safe in a signal handler.
[[noreturn]] void killFreshclamAndExit(int signalNumber);

/// While it lives, killFreshclamAndExit handles signals 15, 2, 3 and 6, and 1 unless the caller
/// ignores it. A closed standard output and a file that reaches the caller's limit are failed
/// writes instead of signals. From its destruction on the signals stay blocked, so that a late one
/// no longer changes the exit status. `context` must outlive it.
class TerminationHandlers {
 public:
  explicit TerminationHandlers(const RunContext& context);
  TerminationHandlers(const TerminationHandlers&) = delete;
  TerminationHandlers& operator=(const TerminationHandlers&) = delete;
  ~TerminationHandlers();

 private:
  SpawnAttributes childAttributes_;  ///< for the handler, which could not make them
};

/// Makes a termination signal end this child and its descendants too; 0 for no child. Requires
/// that the child is not reaped before it is withdrawn, so that its id cannot be reused.
void setChildToTerminate(pid_t child);

/// While it lives, a termination signal ends this run only. Another run is at work then, and its
/// `freshclam` must go on.
class OtherRunsSpared {
 public:
  OtherRunsSpared();
  OtherRunsSpared(const OtherRunsSpared&) = delete;
  OtherRunsSpared& operator=(const OtherRunsSpared&) = delete;
  ~OtherRunsSpared();
};

}  // namespace tarnwick
