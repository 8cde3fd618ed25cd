#pragma once

#include <string_view>

/// The three descriptors that every program expects to inherit.
namespace tarnwick {

/// Writes to standard output. If its reader has closed it, replaces standard output by /dev/null,
/// so that neither this program nor its children fail on it. Ignores other failures.
void writeToStandardOutput(std::string_view text);

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that the caller left closed. Otherwise a
/// file that the run opens could become its standard output. Call it before anything else opens a
/// file.
void keepStandardDescriptorsOpen();

}  // namespace tarnwick
