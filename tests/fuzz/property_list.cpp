#include "platform/property_list.hpp"

#include <algorithm>

#include "fuzz.hpp"

namespace tarnwick::fuzz {

using platform::Preferences;

static Preferences stored(const Preferences& values) {
  return platform::parsePropertyList(platform::formatPropertyList(values));
}

/// XML cannot represent the other characters, or changes them: line ends.
static bool canBeStored(std::string_view text) {
  const auto isControl = [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7F; };
  return charactersByModel(text) && std::ranges::none_of(text, isControl);
}

/// The input is a property list, and then a text to be stored in one.
void tryInput(std::string_view input) {
  const Preferences read = platform::parsePropertyList(input);
  require(std::ranges::includes(read, stored(read)), "storing adds no values");
  const std::string text(input);
  const Preferences sound{{"sound", "value"}};
  for (const Preferences& values : {Preferences{{"key", text}}, {{"key " + text, "value"}}}) {
    Preferences both = sound;
    both.insert(values.begin(), values.end());
    require(stored(both) == (canBeStored(text) ? both : sound),
            "values that cannot be stored are left out");
  }
}

}  // namespace tarnwick::fuzz
