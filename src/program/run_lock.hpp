#pragma once

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// Keeps a second run waiting while this one lives. The kernel releases it with the process,
/// however that ends. The lock is on a file that no other user can open.
class RunLock {
 public:
  /// Waits, and says so on standard error, while another run holds the lock. Without the rights
  /// to lock anything the run goes on unprotected.
  static RunLock acquire();

 private:
  explicit RunLock(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace tarnwick
