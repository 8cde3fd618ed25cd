#pragma once

#include <string>
#include <string_view>

#include "platform/platform.hpp"

namespace tarnwick::platform {

/// The texts of an XML property list, by key. Ignores values that are not texts. Empty if `xml` is
/// not a property list with a dictionary as its root.
[[nodiscard]] Preferences parsePropertyList(std::string_view xml);

/// The XML property list of these texts. Leaves out texts that parsePropertyList would not return
/// unchanged: those with control characters, and those that are not UTF-8.
[[nodiscard]] std::string formatPropertyList(const Preferences& values);

}  // namespace tarnwick::platform
