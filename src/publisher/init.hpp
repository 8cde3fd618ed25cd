#pragma once

#include <string>

namespace tarnwick::publisher {

/// Makes a publishing home: key pair and public tree.
void makeHome(const std::string& homePath);

}  // namespace tarnwick::publisher
