#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace tarnwick {

/// The log, opened for appending, or none. The signal handler may look at it at any moment.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() { close(); }

  /// Opens `path`, closing what was open. Makes it, readable and writable for all, when there is
  /// none. Where that fails, or a named pipe has no reader, there is no log.
  void open(const std::string& path);
  /// Writes a line to it. Where it is a pipe and full, a lazy reader misses the line.
  void append(std::string_view line) const;
  /// Does no harm when nothing is open.
  void close();
  /// -1 when nothing is open.
  [[nodiscard]] int descriptor() const { return descriptor_.load(); }

 private:
  std::atomic<int> descriptor_{-1};
};

}  // namespace tarnwick
