#pragma once

#include "driver/run_context.hpp"

namespace tarnwick {

/// Points `freshclam.conf` at the vendor's mirror, with a single attempt, or back at ClamAV's own.
/// Plain substitutions of text wherever it stands; the file is never parsed, and nothing is
/// checked or reported.
void switchFreshclamMirror(const RunContext& context, bool towardVendor);

/// Points `freshclam` at the vendor's mirror for this run and removes its memory of mirrors.
void prepareFreshclamConfiguration(const RunContext& context);

}  // namespace tarnwick
