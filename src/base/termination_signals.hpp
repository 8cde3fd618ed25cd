#pragma once

#include <array>
#include <csignal>

namespace tarnwick {

/// The signals that end a run; SIGHUP does so only if the caller does not ignore it.
inline constexpr std::array terminationSignals{SIGTERM, SIGINT, SIGQUIT, SIGABRT, SIGHUP};

/// Whether this process ignores a signal. It does from its start if its caller did.
[[nodiscard]] bool isIgnored(int signalNumber);

/// Changes the calling thread's mask; `how` has the values of pthread_sigmask. Stores the former
/// mask in `before`, if that is given.
void maskTerminationSignals(int how, sigset_t* before = nullptr);

/// Blocks the termination signals in this thread during its lifetime. A thread that starts during
/// that time keeps them blocked.
class TerminationDelay {
 public:
  TerminationDelay() { maskTerminationSignals(SIG_BLOCK, &before_); }
  TerminationDelay(const TerminationDelay&) = delete;
  TerminationDelay& operator=(const TerminationDelay&) = delete;
  ~TerminationDelay() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

/// Unblocks the termination signals during its lifetime: for a step within a TerminationDelay that
/// may take long.
class TerminationWindow {
 public:
  TerminationWindow() { maskTerminationSignals(SIG_UNBLOCK, &before_); }
  TerminationWindow(const TerminationWindow&) = delete;
  TerminationWindow& operator=(const TerminationWindow&) = delete;
  ~TerminationWindow() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace tarnwick
