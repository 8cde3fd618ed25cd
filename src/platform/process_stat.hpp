#pragma once

#include <charconv>
#include <string_view>

#include "platform/platform.hpp"

namespace tarnwick::platform {

/// Reads the beginning of a process's /proc/PID/stat. None if the text has another form. Safe in a
/// signal handler.
[[nodiscard]] inline std::optional<ProcessInfo> infoInStat(std::string_view stat) {
  // Id, name in brackets, state, parent. The name itself may contain brackets.
  const std::size_t bracket = stat.rfind(") ");
  if (bracket == std::string_view::npos || bracket + 4 >= stat.size()) return std::nullopt;
  constexpr std::string_view stoppedOrEnded = "TtZX";
  ProcessInfo info{.cannotFork = stoppedOrEnded.find(stat[bracket + 2]) != stoppedOrEnded.npos};
  std::from_chars(stat.data() + bracket + 4, stat.data() + stat.size(), info.parent);
  return info;
}

}  // namespace tarnwick::platform
