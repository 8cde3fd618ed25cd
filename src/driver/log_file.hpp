#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// The log of a run: whether one is wanted, where, and the open file. `freshclam` writes to the
/// same log, so it is handed over before each run of it and taken back afterwards. The signal
/// handler may ask for the descriptor at any moment.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() { close(); }

  /// From now on the log at `path` is wanted. Opens it for appending, and makes it, readable and
  /// writable for all, where there is none. A failure is reported once, on the platform log, and
  /// leaves the log closed: a FIFO without a reader is one, and so is a path that another user
  /// could have led elsewhere by a link.
  void open(const std::string& path);

  /// None when no log was named.
  [[nodiscard]] const std::optional<std::string>& path() const { return path_; }

  /// Writes a line if the log is open. A line that a full pipe has no room for is lost.
  void append(std::string_view line) const;

  /// Leaves the log to another program. A pipe stays open all the same, because its reader would
  /// otherwise take it for ended. May be repeated.
  void handOver();
  /// Writes to it again.
  void takeBack();

  /// Deletes the log and makes a new one that belongs to `clamav`. What is no regular file stays.
  void beginAnew();
  /// Makes the log readable and writable for all.
  void openToAll() const;

  /// May be repeated.
  void close();

  /// -1 while the log is closed or handed over.
  [[nodiscard]] int descriptor() const { return descriptor_.load(); }

 private:
  [[nodiscard]] std::string reopen();

  std::optional<std::string> path_;
  FileDescriptor file_;
  bool isRegular_ = false;
  bool failureIsReported_ = false;
  std::atomic<int> descriptor_{-1};
};

/// Deletes the log at `path`, which is not open, and makes a new one that belongs to `clamav`.
void beginLogAnew(const std::string& path);

}  // namespace tarnwick
