#include "driver/run/log_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_descriptor.hpp"

namespace tarnwick {

void LogFile::open(const std::string& path) {
  close();
  // A named pipe without a reader would keep the run waiting, and one with a lazy reader too.
  constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC;
  FileDescriptor file(::open(path.c_str(), flags, 0666));
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || S_ISFIFO(status.st_mode)) return;
  ::fcntl(file.get(), F_SETFL, O_APPEND);
  descriptor_ = file.release();
}

void LogFile::close() {
  // Forgotten first: the signal handler must never write to a number that means another file.
  const int descriptor = descriptor_.exchange(-1);
  if (descriptor >= 0) ::close(descriptor);
}

}  // namespace tarnwick
