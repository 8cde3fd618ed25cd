#pragma once

#include <string>
#include <vector>

#include "driver/run_context.hpp"

namespace tarnwick {

/// The program's arguments, without its name.
using Arguments = std::vector<std::string>;

/// Whether the first argument asks for the version report.
[[nodiscard]] bool asksForVersionReport(const Arguments& arguments);

/// Whether the first argument asks to wipe the old databases. The same text in another position has
/// no effect.
[[nodiscard]] bool asksToRemoveOldFirst(const Arguments& arguments);

/// Builds `freshclamCommand` from the arguments, and sets the log, the quiet mode and the data
/// directory. The arguments are `freshclam`'s; this program searches each for a few words, so one
/// argument can have several effects.
void readArguments(RunContext& context, const Arguments& arguments);

}  // namespace tarnwick
