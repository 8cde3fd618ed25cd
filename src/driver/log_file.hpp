#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace tarnwick {

/// Whether somebody else can put a link in this file's place and have it followed. Not in a sticky
/// folder: there the system follows none of theirs.
bool othersCanPlaceLink(const std::string& path);

/// Makes the log where there is none, and readable and writable for all, as `touch` and
/// `chmod a+rw` do, but follows no link.
void openLogToAll(const std::string& path);

/// The log, opened for appending, or none. The signal handler may look at it at any moment.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() { close(); }

  /// Opens `path`, closing what was open. Makes it, readable and writable for all, when there is
  /// none. Where that fails, a named pipe has no reader, or what is there may be a link of
  /// somebody else's, there is no log.
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
