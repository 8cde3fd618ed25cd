#pragma once

#include <optional>
#include <string>

#include "driver/run_context.hpp"
#include "driver/update_state.hpp"
#include "vendor/vendor_items.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// Brings one item up to date: asks the server for its date, and installs or withdraws the item if
/// that differs from `storedLastModified`. Prints every failure. Records one value into `state`:
/// the new "Last-Modified" text if this call installed or withdrew the item, else
/// `storedLastModified`.
void updateVendorFile(RunContext& context, const VendorSession& session, const VendorItem& item,
                      const std::optional<std::string>& storedLastModified, UpdateState& state);

}  // namespace tarnwick
