#pragma once

#include <string_view>

namespace tarnwick::publisher {

/// What --help prints, and what --help behind a command does; the former where a command has no
/// text of its own.
std::string_view usage();
std::string_view usageOf(std::string_view command);

}  // namespace tarnwick::publisher
