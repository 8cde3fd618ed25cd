#include <algorithm>
#include <cstdlib>
#include <limits>

#include "base/text_rules.hpp"
#include "fuzz.hpp"

namespace tarnwick::fuzz {

/// What the C library makes of it, which is shown no word and no hexadecimal number.
static double decimalByModel(std::string_view text) {
  const std::string decimal(text.substr(0, text.find_first_not_of("\t\n\v\f\r 0123456789+-.eE")));
  return std::clamp(std::strtod(decimal.c_str(), nullptr), std::numeric_limits<double>::lowest(),
                    std::numeric_limits<double>::max());
}

void tryInput(std::string_view input) {
  require(parseInteger(input) == integerByModel(input), "an integer is what the C library reads");
  require(parseDecimal(input) == decimalByModel(input), "a decimal is what the C library reads");
}

}  // namespace tarnwick::fuzz
