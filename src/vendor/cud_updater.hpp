#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "driver/run_context.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// Brings the installed `VestRUM.cud` forward by the vendor's signed scripts, or fetches it whole
/// when that cannot be done. True when this call installed a container; a whole container that
/// passed its test counts as installed even where it could not be moved into place.
bool updateIncrementalDatabase(const RunContext& context, const VendorSession& session);

/// The version in the text that the vendor publishes it in; 0 when there is none.
std::int64_t versionInText(std::string_view text);

/// Packs all that a folder holds, but for the archive itself. False as well where an entry's name
/// means something else to tar.
[[nodiscard]] bool packFolder(const std::filesystem::path& folder,
                              const std::filesystem::path& archive);

/// The shell command that writes a container's header, and the archive behind it. None without a
/// header, and for one that does not stay within the quotes in which it stands there.
std::optional<std::string> joinCommand(std::string_view header,
                                       const std::filesystem::path& archive,
                                       const std::filesystem::path& container);

/// Removes the work folders that a killed run left behind.
void removeContainerLeftovers(const VendorSession& session);

}  // namespace tarnwick
