#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>

namespace tarnwick {

/// A process and everything that descends from it, wherever in being started each of them is.
/// Safe in a signal handler.
class ProcessFamily {
 public:
  /// Stops them all: who stands still starts nobody. `ancestor` is a child of this process that
  /// has not been waited for, or 0 for nobody.
  explicit ProcessFamily(pid_t ancestor);

  /// Asks them all to end and lets them go on to do so. Does not wait for it.
  void end() const;

 private:
  bool standsStill();
  void take(pid_t process);
  [[nodiscard]] bool has(pid_t process) const;

  std::array<pid_t, 64> members_{};
  std::size_t size_ = 0;
};

}  // namespace tarnwick
