#pragma once

#include <string>
#include <vector>

#include "driver/run_context.hpp"

namespace tarnwick {

/// The program's arguments, without its name.
using Arguments = std::vector<std::string>;

/// Whether the first argument asks for the version report.
bool asksForVersionReport(const Arguments& arguments);

/// Whether the first argument asks to wipe the old databases. Elsewhere it asks for nothing.
bool asksToRemoveOldFirst(const Arguments& arguments);

/// Builds `freshclamCommand` from the arguments, and takes from them the log, the quiet mode and
/// the data directory. They are `freshclam`'s arguments: this program only reads along, by plain
/// text, and one argument can mean several things to it.
void readArguments(RunContext& context, const Arguments& arguments);

}  // namespace tarnwick
