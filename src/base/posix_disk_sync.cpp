#include <unistd.h>

#include "base/disk_sync.hpp"

namespace tarnwick {

bool syncToDisk(int descriptor) {
  return ::fsync(descriptor) == 0;
}

}  // namespace tarnwick
