#include "driver/run/log_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_descriptor.hpp"

namespace tarnwick {

namespace {

/// A log that is made here is open to all at once: `freshclam` writes to it as a user of its own.
FileDescriptor openOrMake(const std::string& path) {
  // A named pipe without a reader would keep the run waiting.
  constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC;
  constexpr mode_t openToAll = 0666;
  FileDescriptor made(::open(path.c_str(), flags | O_EXCL, openToAll));
  if (!made.isOpen()) return FileDescriptor(::open(path.c_str(), flags, openToAll));
  ::fchmod(made.get(), openToAll);
  return made;
}

}  // namespace

void LogFile::open(const std::string& path) {
  close();
  FileDescriptor file = openOrMake(path);
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return;
  // A pipe stays as it is, so that append can tell when it is full.
  if (!S_ISFIFO(status.st_mode)) ::fcntl(file.get(), F_SETFL, O_APPEND);
  descriptor_ = file.release();
}

void LogFile::append(std::string_view line) const {
  constexpr int patience = 200;  // milliseconds
  const int descriptor = descriptor_;
  if (descriptor >= 0) writeFully(descriptor, line, patience);
}

void LogFile::close() {
  // Forgotten first: the signal handler must never write to a number that means another file.
  const int descriptor = descriptor_.exchange(-1);
  if (descriptor >= 0) ::close(descriptor);
}

}  // namespace tarnwick
