#include "publisher/refusal.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "base/file_descriptor.hpp"
#include "base/standard_streams.hpp"
#include "base/text_rules.hpp"

namespace tarnwick::publisher {
namespace {

constexpr std::size_t longestLine = 200;

}  // namespace

void say(std::string_view line) {
  writeToStandardOutput(fmt::format("{}\n", line));
}

void sayWrong(std::string_view line) {
  static_cast<void>(writeFully(STDERR_FILENO, fmt::format("tarnwick-publish: {}\n", line)));
}

std::string counted(std::int64_t number, std::string_view noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string sizeInWords(std::int64_t bytes) {
  constexpr std::int64_t kilo = 1000;
  constexpr double mega = 1e6;
  constexpr std::int64_t tenKilo = 10 * kilo;
  if (bytes < kilo) return counted(bytes, "byte");
  if (bytes < tenKilo) return fmt::format("{:.1f} kB", static_cast<double>(bytes) / kilo);
  if (static_cast<double>(bytes) < mega) return fmt::format("{} kB", (bytes + kilo / 2) / kilo);
  return fmt::format("{:.1f} MB", static_cast<double>(bytes) / mega);
}

std::string withoutControls(std::string_view text) {
  constexpr unsigned char firstPrintable = 0x20;
  constexpr unsigned char rubout = 0x7F;
  std::string result(text);
  std::ranges::replace_if(
      result,
      [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < firstPrintable || byte == rubout;
      },
      '?');
  return result;
}

std::string presentable(std::string_view text) {
  constexpr unsigned char lastPrintable = 0x7E;
  std::string result = withoutControls(replaced(text, "\r", "").substr(0, longestLine));
  std::ranges::replace_if(
      result, [](char c) { return static_cast<unsigned char>(c) > lastPrintable; }, '?');
  return result;
}

std::string_view firstLine(std::string_view text) {
  const std::size_t start = text.find_first_not_of('\n');
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  return text.substr(0, text.find('\n'));
}

std::string firstError(std::string_view text) {
  for (const std::string_view line : split(text, '\n')) {
    if (line.find("rror") != std::string_view::npos) {
      return std::string(line.substr(0, longestLine));
    }
  }
  return {};
}

}  // namespace tarnwick::publisher
