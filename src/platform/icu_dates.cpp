#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string_view>

#include "platform/platform.hpp"

namespace tarnwick::platform {
namespace {

// The earliest and latest moment of ICU's calendars.
constexpr UDate earliestMilliseconds = -184303902528000000.0;
constexpr UDate latestMilliseconds = 183882168921600000.0;

std::string formatted(const icu::DateFormat& format, UDate moment) {
  icu::UnicodeString text;
  format.format(std::clamp(moment, earliestMilliseconds, latestMilliseconds), text);
  std::string result;
  text.toUTF8String(result);
  return result;
}

/// Whether a name has the form of a locale: language, script, region, code set, modifier. ICU can
/// crash on other names, for example on a language of twelve letters.
bool isLocaleName(std::string_view name) {
  constexpr std::size_t longest = 40;  // bounds the matching
  static const std::regex form(
      "[a-zA-Z]{2,3}(_[a-zA-Z]{4})?(_([a-zA-Z]{2}|[0-9]{3}))?(\\.[-_a-zA-Z0-9]+)?(@[a-zA-Z0-9]+)?");
  return name.size() <= longest && std::regex_match(name.begin(), name.end(), form);
}

/// The locale for dates, from the environment in POSIX's order.
icu::Locale dateLocale() {
  for (const char* const variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* const name = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe)
    if (name == nullptr || *name == '\0') continue;
    if (!isLocaleName(name)) break;  // for example "C" or "POSIX"
    return icu::Locale::createCanonical(name);
  }
  return icu::Locale::createCanonical("en_US_POSIX");
}

/// Without a default, ICU reads the environment itself, whichever locale the caller names, and
/// Debian 13's ICU crashes if the environment names no locale.
void setDefaultLocale() {
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale::setDefault(dateLocale(), status);
}

}  // namespace

std::string formatDate(double secondsSince1970, std::string_view pattern, TimeZone zone) {
  setDefaultLocale();
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat format(
      icu::UnicodeString::fromUTF8({pattern.data(), static_cast<std::int32_t>(pattern.size())}),
      icu::Locale("en", "US", "POSIX"), status);
  if (U_FAILURE(status)) return {};
  format.adoptTimeZone(zone == TimeZone::gmt ? icu::TimeZone::getGMT()->clone()
                                             : icu::TimeZone::createDefault());
  return formatted(format, secondsSince1970 * U_MILLIS_PER_SECOND);
}

std::string currentDateAndTime() {
  setDefaultLocale();
  const std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kMedium, icu::DateFormat::kMedium, dateLocale()));
  return format ? formatted(*format, icu::Calendar::getNow()) : std::string();
}

}  // namespace tarnwick::platform
