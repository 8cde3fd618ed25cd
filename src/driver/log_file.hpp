#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// The log of a run: whether one is wanted, its path, and the open file. `freshclam` writes to the
/// same log, so the run hands it over before each run of `freshclam` and takes it back afterwards.
/// The signal handler may read the descriptor at any moment.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() { close(); }

  /// Makes `path` the log of this run and opens it for appending. Creates it, readable and writable
  /// for every user, if it does not exist. On failure reports the reason once, on the platform log,
  /// and leaves the log closed. A FIFO without a reader counts as a failure, and so does a path
  /// that another user could have redirected by a link.
  void open(const std::string& path);

  /// None if no log was named.
  [[nodiscard]] const std::optional<std::string>& path() const { return path_; }

  /// Writes a line if the log is open. Drops the line if the log is a pipe that stays full.
  void append(std::string_view line) const;

  /// Closes the log so that another program can write to it. Keeps a pipe open, because its reader
  /// would otherwise see its end. Can be called again.
  void handOver();
  /// Opens the log again after handOver. Reports a failure as `open` does.
  void takeBack();

  /// Deletes the log and creates a new one that belongs to `clamav`. Keeps what is not a regular
  /// file.
  void beginAnew();
  /// Makes the log readable and writable for every user. Does nothing if no log was named.
  void giveToAll() const;

  /// Can be called again.
  void close();

  /// -1 while the log is closed or handed over. Safe in a signal handler.
  [[nodiscard]] int descriptor() const { return descriptor_.load(); }

 private:
  [[nodiscard]] std::string reopen();

  std::optional<std::string> path_;
  FileDescriptor file_;
  bool isRegular_ = false;
  bool failureIsReported_ = false;
  std::atomic<int> descriptor_{-1};
};

/// Deletes the log at `path` and creates a new one that belongs to `clamav`. Requires that no
/// LogFile has it open.
void beginLogAnew(const std::string& path);

}  // namespace tarnwick
