#pragma once

#include <array>
#include <csignal>

namespace tarnwick {

/// The signals that end a run; SIGHUP only if the caller does not ignore it.
inline constexpr std::array terminationSignals{SIGTERM, SIGINT, SIGQUIT, SIGABRT, SIGHUP};

/// Whether this process ignores a signal, as it does when its caller did.
bool isIgnored(int signalNumber);

/// `how` as pthread_sigmask knows it, for the calling thread. The former mask goes to `before`.
void maskTerminationSignals(int how, sigset_t* before = nullptr);

/// Keeps the termination signals from this thread while it lives, and for good from every thread
/// that starts meanwhile.
class TerminationDelay {
 public:
  TerminationDelay() { maskTerminationSignals(SIG_BLOCK, &before_); }
  TerminationDelay(const TerminationDelay&) = delete;
  TerminationDelay& operator=(const TerminationDelay&) = delete;
  ~TerminationDelay() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

/// Lets them through while it lives: for what may take long, or wait, within a delay.
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
