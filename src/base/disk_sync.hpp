#pragma once

namespace tarnwick {

/// Brings an open file or folder to the disk, past every cache that loses it with the power. CMake
/// picks the file that carries it out, since this layer knows of no system. False when it failed.
bool syncToDisk(int descriptor);

}  // namespace tarnwick
