#include <algorithm>
#include <cstdlib>
#include <limits>

#include "base/text_rules.hpp"
#include "fuzz.hpp"

namespace tarnwick::fuzz {

/// Takes at most so many of these characters off the front of a text.
static std::string take(std::string_view& from, std::string_view allowed, std::size_t most = 4096) {
  const std::string taken(from.substr(0, std::min(from.find_first_not_of(allowed), most)));
  from.remove_prefix(taken.size());
  return taken;
}

static double decimalByModel(std::string_view text) {
  constexpr std::string_view digits = "0123456789";
  take(text, " \t\n\v\f\r");
  const std::string sign = take(text, "+-", 1);
  const std::string whole = take(text, digits);
  const std::string fraction = take(text, ".", 1).empty() ? "" : take(text, digits);
  if ((whole + fraction).empty()) return 0;
  const std::string exponent = take(text, "eE", 1) + take(text, "+-", 1);
  const std::string power = exponent.find_first_of("eE") == 0 ? take(text, digits) : "";
  const std::string number =
      sign + whole + "." + fraction + "e" + (power.empty() ? "0" : exponent.substr(1) + power);
  return std::clamp(std::strtod(number.c_str(), nullptr), std::numeric_limits<double>::lowest(),
                    std::numeric_limits<double>::max());
}

void tryInput(std::string_view input) {
  require(parseInteger(input) == integerByModel(input), "an integer is what the C library reads");
  require(parseDecimal(input) == decimalByModel(input), "a decimal is what the C library reads");
}

}  // namespace tarnwick::fuzz
