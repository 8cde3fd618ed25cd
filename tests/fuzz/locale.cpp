#include <unicode/timezone.h>

#include <cstdlib>

#include "fuzz.hpp"
#include "platform/platform.hpp"

/// The input is the names of a locale and of a time zone, from the environment.
void tarnwick::fuzz::tryInput(std::string_view input) {
  const auto names = textsIn(input, 2);
  ::setenv("LC_ALL", names[0].c_str(), 1);
  ::setenv("TZ", names[1].c_str(), 1);
  icu::TimeZone::adoptDefault(icu::TimeZone::detectHostTimeZone());

  using platform::formatDate;
  constexpr auto pattern = "yyyy-MM-dd HH:mm:ss ZZZZZ";
  require(charactersByModel(platform::currentDateAndTime()).has_value(), "a date is a text");
  require(formatDate(1794477600, pattern, platform::TimeZone::gmt) == "2026-11-12 10:00:00 Z",
          "a date in GMT is the same everywhere");
  require(formatDate(1794477600, pattern, platform::TimeZone::local).starts_with("2026-11-1"),
          "a local date is near");
}
