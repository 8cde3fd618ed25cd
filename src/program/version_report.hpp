#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Writes this program's version, and the version or date of each vendor database, to standard
/// output. Needs no root rights. Ignores quiet mode and the log.
void writeVersionReport(const RunContext& context);

}  // namespace tarnwick
