#include "base/text_rules.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tarnwick {
namespace {

constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
constexpr auto highest = std::numeric_limits<std::int64_t>::max();

TEST(TextRules, ReadsIntegersAsFarAsTheyGo) {
  for (const auto* const none : {"", "   ", "x7", "-", "+-5", "++5", "0x10"}) {
    EXPECT_EQ(parseInteger(none), 0) << none;
  }
  const std::pair<std::string_view, std::int64_t> cases[] = {
      {" \t42\n", 42},
      {"+42x", 42},
      {"-17:3", -17},
      {"007", 7},
      {{"12\0004", 4}, 12},
      {"9223372036854775807", highest},
      {"9223372036854775808", highest},
      {"-9223372036854775809", lowest},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(parseInteger(text), expected) << text;
}

TEST(TextRules, ReadsDecimalsButNoWords) {
  for (const auto* const none : {"", "++1", "+-1", "+ 1", "inf", "1e-999", "-nan", "-"}) {
    EXPECT_EQ(parseDecimal(none), 0) << none;
  }
  EXPECT_EQ(parseDecimal("1794477600"), 1794477600.0);
  EXPECT_EQ(parseDecimal(" +1.5e3x"), 1500.0);
  EXPECT_EQ(parseDecimal("-.5"), -0.5);
  EXPECT_EQ(parseDecimal("1e999"), std::numeric_limits<double>::max());
  EXPECT_EQ(parseDecimal("-1e999"), std::numeric_limits<double>::lowest());
}

TEST(TextRules, TrimsEveryKindOfWhiteSpace) {
  EXPECT_EQ(trimmed(" \r\n\t1:5 x\u2028\u3000\n"), "1:5 x");
  EXPECT_EQ(trimmed("\u00a0\u0085"), "");
  EXPECT_EQ(trimmed("é"), "é");
}

TEST(TextRules, CutsCharactersNotBytes) {
  EXPECT_EQ(dropCharacters("--log=/x", 6), "/x");
  EXPECT_EQ(dropCharacters("é€-log/x", 6), "/x");
  EXPECT_EQ(dropCharacters("--log", 6), "");
}

TEST(TextRules, SplitsAndReplaces) {
  EXPECT_EQ(split("a::b", ':'), (std::vector<std::string_view>{"a", "", "b"}));
  EXPECT_EQ(split("", ':').size(), 1U);
  EXPECT_EQ(replaced("x.zip.zip", ".zip", ""), "x");
  EXPECT_EQ(replaced(":X:X:X:X:", ":X:X:", ":m:X:"), ":m:X:X:X:");
  EXPECT_FALSE(textFromUtf8("\xC3"));
}

}  // namespace
}  // namespace tarnwick
