#include "base/text_rules.hpp"

#include <utf8.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <system_error>

namespace tarnwick {
namespace {

bool isWhiteSpaceOrLineEnd(char32_t c) {
  constexpr std::array<char32_t, 9> singles{0x20,   0x85,   0xA0,   0x1680, 0x2028,
                                            0x2029, 0x202F, 0x205F, 0x3000};
  return (c >= 0x09 && c <= 0x0D) || (c >= 0x2000 && c <= 0x200B) ||
         std::ranges::find(singles, c) != singles.end();
}

/// C0, DEL and C1, except the three that only move the cursor within the text.
bool isHiddenControl(char32_t c) {
  return (c < 0x20 && c != '\n' && c != '\r' && c != '\t') || (c >= 0x7F && c < 0xA0);
}

/// Skips leading blanks and a plus sign, which std::from_chars rejects.
std::string_view numberStart(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+') text.remove_prefix(1);
  return text;
}

}  // namespace

std::optional<std::string> textFromUtf8(std::string_view bytes) {
  if (!utf8::is_valid(bytes.begin(), bytes.end())) return std::nullopt;
  return std::string(bytes);
}

std::int64_t parseInteger(std::string_view text) {
  const std::string_view digits = numberStart(text);
  std::int64_t value = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (result.ec != std::errc::result_out_of_range) return value;
  return digits.front() == '-' ? std::numeric_limits<std::int64_t>::min()
                               : std::numeric_limits<std::int64_t>::max();
}

double parseDecimal(std::string_view text) {
  // Cut at other characters, because strtod also reads "inf", "nan" and hexadecimal numbers.
  const std::string_view start = numberStart(text);
  const std::string number(start.substr(0, start.find_first_not_of("0123456789.eE+-")));
  return std::clamp(std::strtod(number.c_str(), nullptr), std::numeric_limits<double>::lowest(),
                    std::numeric_limits<double>::max());
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty()) {
    auto next = text.begin();
    if (!isWhiteSpaceOrLineEnd(utf8::unchecked::next(next))) break;
    text.remove_prefix(static_cast<std::size_t>(next - text.begin()));
  }
  while (!text.empty()) {
    auto last = text.end();
    if (!isWhiteSpaceOrLineEnd(utf8::unchecked::prior(last))) break;
    text.remove_suffix(static_cast<std::size_t>(text.end() - last));
  }
  return text;
}

std::string_view stripped(std::string_view text, std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::string_view dropCharacters(std::string_view text, std::size_t count) {
  const auto isContinuation = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
  std::size_t position = 0;
  for (; count > 0 && position < text.size(); --count) {
    ++position;
    while (position < text.size() && isContinuation(text[position])) ++position;
  }
  return text.substr(position);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const std::size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string shownText(std::string_view text) {
  std::string valid;
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), U'?');
  std::string shown;
  for (auto next = valid.cbegin(); next != valid.cend();) {
    const auto start = next;
    if (isHiddenControl(utf8::unchecked::next(next))) {
      shown += '?';
    } else {
      shown.append(start, next);
    }
  }
  return shown;
}

std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  for (;;) {
    const std::size_t found = text.find(from);
    result += text.substr(0, found);
    if (found == std::string_view::npos) return result;
    result += to;
    text.remove_prefix(found + from.size());
  }
}

}  // namespace tarnwick
