#pragma once

#include <istream>
#include <string>

namespace tarnwick::platform {

/// The value of VERSION_ID in a text in the format of os-release; "unknown" if it is missing or not
/// UTF-8.
[[nodiscard]] std::string versionInRelease(std::istream& release);

}  // namespace tarnwick::platform
