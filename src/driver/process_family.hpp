#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>

namespace tarnwick {

/// A process and all its descendants, which may be anywhere between fork and exec.
/// Safe in a signal handler.
class ProcessFamily {
 public:
  /// Stops every process of the family; a stopped process cannot fork. `ancestor` is a child of
  /// this process that has not been reaped, or 0 for an empty family.
  explicit ProcessFamily(pid_t ancestor);

  /// Sends SIGTERM to every member and lets it continue. Does not wait for its end.
  void terminate() const;

 private:
  bool adoptNewcomers();
  void add(pid_t process);
  [[nodiscard]] bool has(pid_t process) const;

  std::array<pid_t, 1024> members_;  // NOLINT(*-member-init): the first size_ are set
  std::size_t size_ = 0;
};

}  // namespace tarnwick
