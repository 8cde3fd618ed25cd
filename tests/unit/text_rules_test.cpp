#include "base/text_rules.hpp"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

TEST(TextRules, ReplacesFromLeftToRight) {
  EXPECT_EQ(replaced("x.zip.zip", ".zip", ""), "x");
  EXPECT_EQ(replaced(":X:X:X:X:", ":X:X:", ":m:X:"), ":m:X:X:X:");
}

}  // namespace
}  // namespace tarnwick
