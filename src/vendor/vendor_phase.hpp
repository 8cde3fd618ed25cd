#pragma once

#include "driver/run_context.hpp"
#include "driver/update_state.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// The vendor phase: brings `VestRUM.cud` forward, then the definitions file "database", and
/// commits what is to be remembered of both. No failure in it ends the run.
void updateVendorDefinitions(RunContext& context, const VendorSession& session, UpdateState& state);

}  // namespace tarnwick
