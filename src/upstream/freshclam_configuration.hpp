#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Points `freshclam.conf` at the vendor's mirror, with a single attempt, or back at ClamAV's own.
/// Substitutes text anywhere in the file and does not parse it. Does not report failures.
void switchFreshclamMirror(const RunContext& context, bool towardVendor);

/// Points `freshclam` at the vendor's mirror for this run and removes its record of failing
/// mirrors.
void prepareFreshclamConfiguration(const RunContext& context);

}  // namespace tarnwick
