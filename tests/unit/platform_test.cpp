#include "platform/platform.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <limits>

namespace tarnwick::platform {
namespace {

TEST(Dates, FollowUnicodePatterns) {
  constexpr auto httpDate = "EEE, dd MMM yyyy HH:mm:ss zzz";
  constexpr auto reportDate = "yyyy-MM-dd HH:mm:ss ZZZZZ";
  EXPECT_EQ(formatDate(1794477600, httpDate, TimeZone::gmt), "Thu, 12 Nov 2026 10:00:00 GMT");
  EXPECT_EQ(formatDate(1794477600.9, reportDate, TimeZone::gmt), "2026-11-12 10:00:00 Z");
  for (const double far : {std::numeric_limits<double>::max(), -1e300, 1e18}) {
    EXPECT_FALSE(formatDate(far, reportDate, TimeZone::gmt).empty());
  }
}

TEST(Processes, AreListedFromTheNewest) {
  std::array<pid_t, 1> newest{};
  EXPECT_EQ(listProcesses(newest), 1U);
  EXPECT_GE(newest[0], ::getpid());
  std::array<char, 4096> buffer{};
  EXPECT_TRUE(executablePathOf(::getpid(), buffer).ends_with("tarnwick_unit_tests"));
  EXPECT_EQ(executablePathOf(std::numeric_limits<pid_t>::max(), buffer), "");
}

}  // namespace
}  // namespace tarnwick::platform
