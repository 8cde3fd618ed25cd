#pragma once

#include <string_view>

namespace tarnwick {

/// Writes one line to standard error: date, time, program and process id, then the message. For
/// messages to the administrator, who finds them in the scheduler's journal. Ignores a failure.
void platformLog(std::string_view message);

}  // namespace tarnwick
