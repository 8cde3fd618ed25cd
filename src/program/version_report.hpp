#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Writes the tool's version and, for each of the vendor's databases, when it was last updated.
/// Needs no super-user rights; knows neither quiet mode nor log.
void writeVersionReport(const RunContext& context);

}  // namespace tarnwick
