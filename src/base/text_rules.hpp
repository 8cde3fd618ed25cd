#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How texts from servers, files and programs are read: the same few rules everywhere.
namespace tarnwick {

/// The bytes as text, or none when they are not valid UTF-8.
std::optional<std::string> textFromUtf8(std::string_view bytes);

/// Leading blanks are skipped, a sign is taken, reading stops at the first character that is not
/// a digit. No digits give 0; a number out of range gives the nearest limit.
std::int64_t parseInteger(std::string_view text);

/// As parseInteger, for a decimal number with an optional fraction and exponent.
double parseDecimal(std::string_view text);

/// The text without white space and line ends at both ends. Expects valid UTF-8.
std::string_view trimmed(std::string_view text);

/// The text without any of these single-byte characters at both ends.
std::string_view stripped(std::string_view text, std::string_view characters);

/// The text after its first `count` characters; empty when it has no more than that.
std::string_view dropCharacters(std::string_view text, std::size_t count);

/// The pieces between the separators: always one more than there are separators.
std::vector<std::string_view> split(std::string_view text, char separator);

/// The text as a terminal may be shown it: "?" for each control character but line feed, carriage
/// return and tab, and for what is not UTF-8.
std::string shownText(std::string_view text);

/// Every occurrence of `from`, taken from left to right, replaced by `to`.
std::string replaced(std::string_view text, std::string_view from, std::string_view to);

}  // namespace tarnwick
