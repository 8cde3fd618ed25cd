#pragma once

#include <sys/types.h>

#include "driver/run_context.hpp"
#include "driver/spawn_attributes.hpp"

namespace tarnwick {

/// The signal handler. Terminates the run's child with its descendants and every running
/// `freshclam`, then ends the run with exit status 255. Does not wait for those processes, and does
/// not clean up what the signal interrupted. Calls only functions that are safe in a signal
/// handler.
[[noreturn]] void killFreshclamAndExit(int signalNumber);

/// During its lifetime killFreshclamAndExit handles the signals 15, 2, 3 and 6, and 1 unless the
/// caller ignores that one. A write to a closed standard output, or beyond the caller's limit on
/// the size of a file, fails and raises no signal. The destructor blocks the signals, so that a
/// late one cannot change the exit status. `context` must outlive it.
class TerminationHandlers {
 public:
  explicit TerminationHandlers(const RunContext& context);
  TerminationHandlers(const TerminationHandlers&) = delete;
  TerminationHandlers& operator=(const TerminationHandlers&) = delete;
  ~TerminationHandlers();

 private:
  SpawnAttributes childAttributes_;  ///< made here because a signal handler cannot make them
};

/// Makes a termination signal terminate this child and its descendants too. Requires that the child
/// is not reaped before clearChildToTerminate, so that its id cannot be reused.
void setChildToTerminate(pid_t child);
void clearChildToTerminate();

/// During its lifetime a termination signal kills no `freshclam` that this run did not start. For
/// the time in which another run is active and needs its own.
class OtherRunsSpared {
 public:
  OtherRunsSpared();
  OtherRunsSpared(const OtherRunsSpared&) = delete;
  OtherRunsSpared& operator=(const OtherRunsSpared&) = delete;
  ~OtherRunsSpared();
};

}  // namespace tarnwick
