#pragma once

#include <cstdint>
#include <string_view>

#include "upstream/direct_download.hpp"

/// Operations under the names that the description of this program's interfaces uses. Each only
/// calls the functions that do the work; a run uses those.
namespace tarnwick {

[[nodiscard]] inline bool databaseNeedsUpdate(const RunContext& context, std::string_view name,
                                              std::int64_t available) {
  return compareWithAvailable(context, name, available);
}

}  // namespace tarnwick
