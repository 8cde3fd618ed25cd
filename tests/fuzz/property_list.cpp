#include "platform/property_list.hpp"

#include "fuzz.hpp"

/// A property list, and a text that is to be stored in one.
void tarnwick::fuzz::tryInput(std::string_view input) {
  using platform::Preferences;
  const Preferences read = platform::parsePropertyList(input);
  const Preferences made{{"k", std::string(input)}, {"sound", "value"}};
  for (const Preferences& values : {read, made}) {
    const Preferences stored = platform::parsePropertyList(platform::formatPropertyList(values));
    for (const auto& [key, value] : stored) {
      const auto found = values.find(key);
      require(found != values.end() && found->second == value, "what comes back was stored");
    }
    require(stored.contains("sound") == values.contains("sound"), "a sound text is stored");
  }
}
