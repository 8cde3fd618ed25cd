#pragma once

#include <istream>
#include <string>

namespace tarnwick::platform {

/// The version that a text of os-release's form gives the system; "unknown" when it gives none, or
/// one that is no UTF-8.
std::string versionInRelease(std::istream& release);

}  // namespace tarnwick::platform
