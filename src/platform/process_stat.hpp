#pragma once

#include <charconv>
#include <string_view>

#include "platform/platform.hpp"

namespace tarnwick::platform {

/// What the beginning of a process's /proc/PID/stat says; none where it is no such text.
inline std::optional<ProcessSight> sightInStat(std::string_view stat) {
  // Id, name in brackets, state, parent. A name may hold brackets of its own.
  const std::size_t bracket = stat.rfind(") ");
  if (bracket == std::string_view::npos || bracket + 4 >= stat.size()) return std::nullopt;
  constexpr std::string_view standing = "TtZX";
  ProcessSight sight{.standsStill = standing.find(stat[bracket + 2]) != std::string_view::npos};
  std::from_chars(stat.data() + bracket + 4, stat.data() + stat.size(), sight.parent);
  return sight;
}

}  // namespace tarnwick::platform
