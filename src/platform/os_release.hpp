#pragma once

#include <istream>
#include <string>

namespace tarnwick::platform {

/// The value of VERSION_ID in a text of the form of os-release; "unknown" if there is none, or if
/// it is not UTF-8.
std::string versionInRelease(std::istream& release);

}  // namespace tarnwick::platform
