#pragma once

#include <optional>
#include <string>

#include "driver/run_context.hpp"
#include "driver/update_state.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// Brings one of the vendor's files, Vestrum.<item>, up to date. `item` may end in ".zip".
/// Records exactly one value into `state`: the new "Last-Modified" text where the file was
/// installed or withdrawn, else `storedLastModified` again.
void updateVendorFile(RunContext& context, const VendorSession& session, std::string item,
                      const std::optional<std::string>& storedLastModified, UpdateState& state);

}  // namespace tarnwick
