#pragma once

#include <string>
#include <variant>

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// The folder and the name to which a log's path leads, found without following a link that another
/// user could have placed. Keeps the folder open, so that a later change of the path has no effect.
class LogPlace {
 public:
  enum class LastLink { followed, kept };

  /// The place, or the reason why the path is refused.
  [[nodiscard]] static std::variant<LogPlace, std::string> find(
      const std::string& path, LastLink lastLink = LastLink::followed);

  /// Whether only root and the user of this process can exchange a folder or link on the path.
  [[nodiscard]] bool isOursAlone() const { return oursAlone_; }

  /// Opens the log, and creates it, readable and writable for every user, if it does not exist.
  /// Returns a closed descriptor on failure, with errno set. `access` is O_WRONLY or O_RDONLY, with
  /// O_APPEND if wanted.
  [[nodiscard]] FileDescriptor openOrMake(int access) const;

  /// Whether the log is a stream, which keeps no lines and which no run creates: a pipe, a device,
  /// or an open descriptor such as /dev/stdout.
  [[nodiscard]] bool isStream() const;

  /// Deletes the file or link; ignores a failure.
  void remove() const;

 private:
  class Walk;

  [[nodiscard]] FileDescriptor open(int flags) const;

  FileDescriptor folder_;
  std::string name_;
  bool oursAlone_ = true;
  bool isDescriptor_ = false;  ///< a link in /proc/PID/fd, which only the kernel can follow
};

}  // namespace tarnwick
