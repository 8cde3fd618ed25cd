#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/platform.hpp"

namespace tarnwick::platform {
namespace {

// The span of time that ICU's calendars can hold.
constexpr UDate earliestMilliseconds = -184303902528000000.0;
constexpr UDate latestMilliseconds = 183882168921600000.0;

std::string formatted(const icu::DateFormat& format, UDate moment) {
  icu::UnicodeString text;
  format.format(std::clamp(moment, earliestMilliseconds, latestMilliseconds), text);
  std::string result;
  text.toUTF8String(result);
  return result;
}

/// The locale for dates, by the order in which POSIX reads the environment.
icu::Locale dateLocale() {
  for (const char* const variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* const name = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe)
    if (name == nullptr || *name == '\0') continue;
    const std::string_view known(name);
    if (known == "C" || known == "POSIX" || known.starts_with("C.")) break;
    return icu::Locale::createCanonical(name);
  }
  return icu::Locale::createCanonical("en_US_POSIX");
}

}  // namespace

std::string formatDate(double secondsSince1970, std::string_view pattern, TimeZone zone) {
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
  const std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kMedium, icu::DateFormat::kMedium, dateLocale()));
  return format ? formatted(*format, icu::Calendar::getNow()) : std::string();
}

}  // namespace tarnwick::platform
