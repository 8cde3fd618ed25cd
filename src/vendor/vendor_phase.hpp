#pragma once

#include "driver/run_context.hpp"
#include "driver/update_state.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// The vendor phase: brings the container forward, updates each item that is still published, and
/// commits the state. Sets `definitionsChanged`. Reports failures and never ends the run.
void updateVendorDefinitions(RunContext& context, const VendorSession& session, UpdateState& state);

}  // namespace tarnwick
