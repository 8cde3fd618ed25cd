#pragma once

#include <string>
#include <string_view>

#include "platform/platform.hpp"

namespace tarnwick::platform {

/// The texts of an XML property list whose root is a dictionary, by key. Anything else in it is
/// passed over, and a text that is no such property list holds nothing.
Preferences parsePropertyList(std::string_view xml);

/// The XML property list that holds these texts, but for those that would not come back as they
/// are: with control characters, or not UTF-8.
std::string formatPropertyList(const Preferences& values);

}  // namespace tarnwick::platform
