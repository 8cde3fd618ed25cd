#include "platform/property_list.hpp"

#include <algorithm>

#include "fuzz.hpp"

namespace tarnwick::fuzz {

using platform::Preferences;

static Preferences stored(const Preferences& values) {
  return platform::parsePropertyList(platform::formatPropertyList(values));
}

/// XML has no place for the others, or line ends of its own.
static bool canBeStored(std::string_view text) {
  const auto isControl = [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7F; };
  return charactersByModel(text) && std::ranges::none_of(text, isControl);
}

/// A property list, and a text that is to be stored in one.
void tryInput(std::string_view input) {
  const Preferences read = platform::parsePropertyList(input);
  require(std::ranges::includes(read, stored(read)), "what comes back was stored");
  const std::string text(input);
  const Preferences sound{{"sound", "value"}};
  for (const Preferences& values : {Preferences{{"key", text}}, {{"key " + text, "value"}}}) {
    Preferences both = sound;
    both.insert(values.begin(), values.end());
    require(stored(both) == (canBeStored(text) ? both : sound),
            "what cannot be stored is left out");
  }
}

}  // namespace tarnwick::fuzz
