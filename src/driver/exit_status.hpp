#pragma once

namespace tarnwick {

/// How a child ended. The only place that interprets a wait status.
class ExitStatus {
 public:
  /// `waitStatus` is what waitpid stored, or -1 if the child could not be started or its end could
  /// not be learned.
  [[nodiscard]] static constexpr ExitStatus fromWaitStatus(int waitStatus) {
    return ExitStatus(waitStatus);
  }
  [[nodiscard]] static constexpr ExitStatus unknown() { return ExitStatus(-1); }
  [[nodiscard]] static constexpr ExitStatus exited(int number) { return ExitStatus(number << 8); }

  /// Whether the child exited with status 0. False if a signal killed it.
  [[nodiscard]] constexpr bool isSuccess() const { return waitStatus_ == 0; }

  /// The exit status as callers of this program know it: the wait status shifted by eight bits. So
  /// a child that a signal killed has 0, and `unknown` has -1, which a process exits with as 255.
  [[nodiscard]] constexpr int number() const { return waitStatus_ >> 8; }

 private:
  explicit constexpr ExitStatus(int waitStatus) : waitStatus_(waitStatus) {}

  int waitStatus_;
};

}  // namespace tarnwick
