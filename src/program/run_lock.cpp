#include "program/run_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/platform_log.hpp"
#include "base/prefix.hpp"

namespace tarnwick {

RunLock RunLock::acquire() {
  // Closed to other users: nobody else can hold the lock and so hold up every update.
  ::mkdir("/var/lib", 0755);  // not every system has it
  ::mkdir(stateDirectory, 0700);
  FileDescriptor opened(::open(stateDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened.isOpen()) return RunLock({});
  ::fchmod(opened.get(), 0700);
  if (::flock(opened.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    platformLog("Another run is in progress. Waiting for it to end.");
    while (::flock(opened.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  return RunLock(std::move(opened));
}

}  // namespace tarnwick
