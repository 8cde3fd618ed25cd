#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Writes the tool's version, and the version or date of each vendor database, to standard output.
/// Needs no root rights; ignores quiet mode and log.
void writeVersionReport(const RunContext& context);

}  // namespace tarnwick
