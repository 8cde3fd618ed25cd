#pragma once

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// Makes a second run wait while this object exists. The lock is on a file that no other user can
/// open. The kernel releases it when the process ends, for any reason.
class RunLock {
 public:
  /// Waits while another run holds the lock, and reports that on the platform log. Without the
  /// rights to lock anything returns an object without a lock.
  [[nodiscard]] static RunLock acquire();

 private:
  explicit RunLock(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace tarnwick
