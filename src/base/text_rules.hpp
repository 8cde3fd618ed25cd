#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The rules for reading text from servers, files and programs.
namespace tarnwick {

/// The bytes as text, or none if they are not valid UTF-8.
[[nodiscard]] std::optional<std::string> textFromUtf8(std::string_view bytes);

/// Skips leading blanks, accepts a sign, and stops at the first character that is not a digit.
/// Returns 0 without digits, and the nearest limit for a number out of range.
[[nodiscard]] std::int64_t parseInteger(std::string_view text);

/// Like parseInteger, for a decimal number with an optional fraction and exponent.
[[nodiscard]] double parseDecimal(std::string_view text);

/// The text without white space and line ends at both ends. Requires valid UTF-8.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// The text without any of these single-byte characters at both ends.
[[nodiscard]] std::string_view stripped(std::string_view text, std::string_view characters);

/// The text after its first `count` characters; empty if it has no more.
[[nodiscard]] std::string_view dropCharacters(std::string_view text, std::size_t count);

/// The pieces between the separators: always one more than there are separators. They refer to
/// `text`, which must outlive them.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text, char separator);

/// The text in a form that is safe to print on a terminal: "?" replaces bytes that are not UTF-8,
/// and every control character except line feed, carriage return and tab.
[[nodiscard]] std::string shownText(std::string_view text);

/// The text with each occurrence of `from`, searched from left to right, replaced by `to`. Requires
/// that `from` is not empty.
[[nodiscard]] std::string replaced(std::string_view text, std::string_view from,
                                   std::string_view to);

}  // namespace tarnwick
