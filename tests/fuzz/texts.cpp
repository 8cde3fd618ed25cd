#include <unicode/uchar.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "base/text_rules.hpp"
#include "fuzz.hpp"

namespace tarnwick::fuzz {

/// The C library's result; it gets only characters of decimal numbers, as it also reads others.
static double decimalByModel(std::string_view text) {
  const std::string decimal(text.substr(0, text.find_first_not_of("\t\n\v\f\r 0123456789+-.eE")));
  return std::clamp(std::strtod(decimal.c_str(), nullptr), std::numeric_limits<double>::lowest(),
                    std::numeric_limits<double>::max());
}

static bool isBlank(char32_t character) {
  const auto c = static_cast<UChar32>(character);
  const auto kind = u_charType(c);
  return kind == U_SPACE_SEPARATOR || kind == U_LINE_SEPARATOR || kind == U_PARAGRAPH_SEPARATOR ||
         (c >= '\t' && c <= '\r') || c == 0x85 || c == 0x200B;
}

/// If the text is not UTF-8, only checks that no control character is left.
static void tryShown(std::string_view text) {
  const auto shown = charactersByModel(shownText(text));
  const auto isHidden = [](char32_t c) {
    return u_charType(static_cast<UChar32>(c)) == U_CONTROL_CHAR && c != '\n' && c != '\r' &&
           c != '\t';
  };
  require(shown && std::ranges::none_of(*shown, isHidden), "no control character is shown");
  auto characters = charactersByModel(text);
  if (!characters) return;
  std::ranges::replace_if(*characters, isHidden, U'?');
  require(shown == characters, "other characters are unchanged");
}

static void tryCharacters(std::string_view text) {
  const auto characters = charactersByModel(text);
  require(textFromUtf8(text).has_value() == characters.has_value(), "UTF-8 is recognised");
  if (!characters) return;
  require(charactersByModel(dropCharacters(text, 6)) ==
              characters->substr(std::min<std::size_t>(6, characters->size())),
          "whole characters are dropped");
  const auto first = std::ranges::find_if_not(*characters, isBlank);
  auto last = characters->end();
  while (last != first && isBlank(*(last - 1))) --last;
  require(charactersByModel(trimmed(text)) == std::u32string(first, last), "blanks are trimmed");
}

void tryInput(std::string_view input) {
  for (const std::string& text : splitByModel(input, '~')) {
    require(parseInteger(text) == integerByModel(text), "an integer is what the C library reads");
    require(parseDecimal(text) == decimalByModel(text), "a decimal is what the C library reads");
    require(std::ranges::equal(split(text, ':'), splitByModel(text, ':')), "the text is split");
    require(replaced(text, "ab", "") == withoutByModel(text, "ab"), "every word is taken out");
    require(text.ends_with(dropCharacters(text, 6)), "characters are dropped from the front");
    tryCharacters(text);
    tryShown(text);
  }
}

}  // namespace tarnwick::fuzz
