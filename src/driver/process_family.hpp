#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>

namespace tarnwick {

/// A process and all its descendants, including those between fork and exec. Safe in a signal
/// handler.
class ProcessFamily {
 public:
  /// Stops `ancestor` and all its descendants; a stopped process cannot fork. Requires that
  /// `ancestor` is a child of this process that has not been reaped, or 0 for an empty family.
  [[nodiscard]] static ProcessFamily stop(pid_t ancestor);

  /// Sends SIGTERM to every member and lets it continue. Does not wait for any to end.
  void terminate() const;

 private:
  ProcessFamily() = default;  // NOLINT(*-member-init): see members_

  bool adoptNewcomers();
  void adopt(pid_t process);
  [[nodiscard]] bool has(pid_t process) const;

  std::array<pid_t, 1024> members_;  // NOLINT(*-member-init): the first size_ are set
  std::size_t size_ = 0;
};

}  // namespace tarnwick
