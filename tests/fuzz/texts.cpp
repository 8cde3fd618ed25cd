#include <unicode/uchar.h>

#include <algorithm>

#include "base/text_rules.hpp"
#include "fuzz.hpp"

namespace tarnwick::fuzz {

static bool isBlank(char32_t character) {
  const auto c = static_cast<UChar32>(character);
  const auto kind = u_charType(c);
  return kind == U_SPACE_SEPARATOR || kind == U_LINE_SEPARATOR || kind == U_PARAGRAPH_SEPARATOR ||
         (c >= '\t' && c <= '\r') || c == 0x85 || c == 0x200B;
}

void tryInput(std::string_view input) {
  const auto pieces = splitByModel(input, ':');
  require(std::ranges::equal(split(input, ':'), pieces), "a text is split at every separator");
  require(replaced(input, "ab", "") == withoutByModel(input, "ab"), "every word is taken out");
  require(input.ends_with(dropCharacters(input, 6)), "characters are dropped from the front");

  const auto characters = charactersByModel(input);
  require(textFromUtf8(input).has_value() == characters.has_value(), "UTF-8 is told from the rest");
  if (!characters) return;
  require(charactersByModel(dropCharacters(input, 6)) ==
              characters->substr(std::min<std::size_t>(6, characters->size())),
          "whole characters are dropped");
  const auto first = std::ranges::find_if_not(*characters, isBlank);
  auto last = characters->end();
  while (last != first && isBlank(*(last - 1))) --last;
  require(charactersByModel(trimmed(input)) == std::u32string(first, last), "blanks are trimmed");
}

}  // namespace tarnwick::fuzz
