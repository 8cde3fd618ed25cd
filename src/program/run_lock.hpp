#pragma once

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// Keeps a second run waiting while this one lives. It goes with the process, however that ends.
class RunLock {
 public:
  /// Waits, and says so on standard error, while another run holds the lock. Without the rights
  /// to lock anything the run goes on unprotected.
  static RunLock acquire();

 private:
  explicit RunLock(FileDescriptor folder) : folder_(std::move(folder)) {}

  FileDescriptor folder_;
};

}  // namespace tarnwick
