#pragma once

#include <string_view>

namespace tarnwick {

/// Writes one line to standard error: date, time, program and process id, then the message. For
/// what an administrator should find in the scheduler's journal rather than in the run's report.
void platformLog(std::string_view message);

}  // namespace tarnwick
