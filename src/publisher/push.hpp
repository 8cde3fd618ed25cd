#pragma once

#include <string>

#include "publisher/command_line.hpp"

namespace tarnwick::publisher {

/// Copies the public tree to servers, all at once, and asks them as `check --from` does.
void push(const std::string& homePath, const Invocation& invocation);

}  // namespace tarnwick::publisher
