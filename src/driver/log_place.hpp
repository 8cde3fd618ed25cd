#pragma once

#include <string>
#include <variant>

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// Where a log lies once its path has been followed, without a link that another user could have
/// placed. The open folder stays the same one whatever happens to its path.
class LogPlace {
 public:
  enum class LastLink { followed, kept };

  /// The place, or why the path is refused.
  static std::variant<LogPlace, std::string> find(const std::string& path,
                                                  LastLink lastLink = LastLink::followed);

  /// Whether only root (or the user of this process) can exchange anything on the way there.
  [[nodiscard]] bool isOursAlone() const { return oursAlone_; }

  /// Opens the log, and makes it, readable and writable for all, where there is none. Not open,
  /// with errno set, on failure. `access` is O_WRONLY or O_RDONLY.
  [[nodiscard]] FileDescriptor openOrMake(int access) const;

  /// Whether something is there that holds no old lines and was not made by a run: a pipe, a
  /// device, or what a descriptor is open on, such as /dev/stdout.
  [[nodiscard]] bool isStream() const;

  /// Deletes the file or link; a failure is ignored.
  void remove() const;

 private:
  class Walk;

  [[nodiscard]] FileDescriptor open(int flags) const;

  FileDescriptor folder_;
  std::string name_;
  bool oursAlone_ = true;
  bool isDescriptor_ = false;  ///< the name is a link in /proc/PID/fd, which the kernel follows
};

}  // namespace tarnwick
