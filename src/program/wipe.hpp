#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Deletes the vendor's databases and every ".cld" and ".cvd" of the data directory, and begins
/// the log anew: the one that was named, else "freshclam.log" in the data directory.
void wipeDatabasesAndLog(RunContext& context);

}  // namespace tarnwick
