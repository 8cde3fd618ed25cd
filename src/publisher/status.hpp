#pragma once

#include <string>

#include "publisher/command_line.hpp"

namespace tarnwick::publisher {

/// Tells what is published here, what the mirror has, and which version each server gives out.
void printStatus(const std::string& homePath, const Invocation& invocation);

}  // namespace tarnwick::publisher
