#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Deletes the vendor's databases and every ".cld" and ".cvd" file in the data directory. Replaces
/// the log by a new one: the log that was named, or else "freshclam.log" in the data directory.
void wipeDatabasesAndLog(RunContext& context);

}  // namespace tarnwick
