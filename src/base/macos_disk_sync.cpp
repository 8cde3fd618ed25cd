#include <fcntl.h>
#include <unistd.h>

#include "base/disk_sync.hpp"

namespace tarnwick {

// fsync does not empty the drive's own cache; F_FULLFSYNC does, but not every file system knows it.
bool syncToDisk(int descriptor) {
  return ::fcntl(descriptor, F_FULLFSYNC) == 0 || ::fsync(descriptor) == 0;
}

}  // namespace tarnwick
