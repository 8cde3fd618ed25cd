#pragma once

#include <string_view>

/// The three descriptors that this program is started with.
namespace tarnwick {

/// Writes to standard output. When its reader is gone, standard output becomes /dev/null, so that
/// neither this program nor one that it starts is stopped by that.
void writeToStandardOutput(std::string_view text);

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that the caller left closed, so that no
/// file of ours is ever taken for standard output.
void keepStandardDescriptorsOpen();

}  // namespace tarnwick
