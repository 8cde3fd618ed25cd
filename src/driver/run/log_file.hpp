#pragma once

#include <atomic>
#include <string>

namespace tarnwick {

/// The log, opened for appending, or none. The signal handler may look at it at any moment.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() { close(); }

  /// Opens `path`, closing what was open. Where that fails there is no log.
  void open(const std::string& path);
  /// Does no harm when nothing is open.
  void close();
  /// -1 when nothing is open.
  [[nodiscard]] int descriptor() const { return descriptor_.load(); }

 private:
  std::atomic<int> descriptor_{-1};
};

}  // namespace tarnwick
