#pragma once

#include <cstdint>
#include <string_view>

#include "driver/run_context.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// Brings the installed `VestRUM.cud` forward by the vendor's signed scripts. If that fails,
/// fetches the whole container. Prints every failure. True if this call installed a container; a
/// whole container that passed its test counts as installed even if it could not be moved into
/// place.
[[nodiscard]] bool updateIncrementalDatabase(const RunContext& context,
                                             const VendorSession& session);

/// The version in the text in which the vendor publishes it; 0 if there is none.
[[nodiscard]] std::int64_t versionInText(std::string_view text);

/// Removes the work folders that a killed run left behind.
void removeContainerLeftovers(const VendorSession& session);

}  // namespace tarnwick
