#include <fcntl.h>
#include <unistd.h>

#include "base/disk_sync.hpp"

namespace tarnwick {

// fsync leaves it to the drive when to write what it holds. Not every file system can do better.
bool syncToDisk(int descriptor) {
  return ::fcntl(descriptor, F_FULLFSYNC) == 0 || ::fsync(descriptor) == 0;
}

}  // namespace tarnwick
