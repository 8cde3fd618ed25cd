#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <utility>

#include "driver/run_context.hpp"

namespace tarnwick {

/// Writes a formatted line to standard output and the log. For printMessage only. `format` decides
/// whether the log gets the line, not the line made from it.
void writeMessage(const RunContext& context, std::string_view format, const std::string& line);

/// Prints one line to standard output, unless the run is quiet, and to the log, if it is open.
/// Appends the line feed. Ignores a failure to write.
template <typename... Arguments>
void printMessage(const RunContext& context, fmt::format_string<Arguments...> format,
                  Arguments&&... arguments) {
  const fmt::string_view text = format;
  writeMessage(context, {text.data(), text.size()},
               fmt::format(format, std::forward<Arguments>(arguments)...) + '\n');
}

}  // namespace tarnwick
