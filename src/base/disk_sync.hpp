#pragma once

namespace tarnwick {

/// Writes an open file or folder to the disk, through every cache that a loss of power would empty.
/// False on failure, with errno set. CMake chooses the implementation, because this layer does not
/// depend on the system.
[[nodiscard]] bool syncToDisk(int descriptor);

}  // namespace tarnwick
