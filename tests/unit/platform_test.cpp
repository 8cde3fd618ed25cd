#include "platform/platform.hpp"

#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "platform/property_list.hpp"
#include "scratch.hpp"

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

TEST(PropertyLists, ComeBackAsTheyWere) {
  const Preferences values{{"database-Last-Modified", "Sun, 15 Nov 2026 22:58:00 GMT"},
                           {"<&>", "a\"b'c <é> &amp;"}};
  EXPECT_EQ(parsePropertyList(formatPropertyList(values)), values);
  EXPECT_EQ(parsePropertyList(formatPropertyList({})), Preferences());
}

TEST(PropertyLists, HoldNothingWhereTheyCannotBeRead) {
  const std::string whole = formatPropertyList({{"key", "value"}});
  for (std::size_t length = 0; length < whole.find("</string>"); length += 7) {
    EXPECT_TRUE(parsePropertyList(whole.substr(0, length)).empty()) << length;
  }
  const std::string deep(200000, '<');
  for (const std::string_view text :
       {std::string_view("\0\xFF\x01", 3), std::string_view("bplist00"), std::string_view(deep),
        std::string_view("<plist><dict><key>k</key><integer>1</integer></dict></plist>")}) {
    EXPECT_TRUE(parsePropertyList(text).empty()) << text.substr(0, 60);
  }
}

TEST(Processes, AreListedWithoutTheOldest) {
  std::array<pid_t, 1> newest{};
  EXPECT_EQ(listProcesses(newest), 1U);
  EXPECT_GE(newest[0], ::getpid());
  std::array<char, 4096> buffer{};
  EXPECT_TRUE(executablePathOf(::getpid(), buffer).ends_with("tarnwick_unit_tests"));
  EXPECT_EQ(executablePathOf(std::numeric_limits<pid_t>::max(), buffer), "");
}

TEST(Engine, MustBeRootsAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs files that belong to root";
  using std::filesystem::perms;
  const test::Scratch scratch;
  const std::string engine = scratch.write("engine", "x");
  std::filesystem::create_symlink(engine, scratch.path("link"));
  const auto sound = [&](perms program, perms folder) {
    std::filesystem::permissions(engine, program);
    std::filesystem::permissions(scratch.path(""), folder);
    return engineSignatureIsSound(scratch.path("link"));
  };
  EXPECT_TRUE(sound(perms(0755), perms(0755)));
  EXPECT_FALSE(sound(perms(0644), perms(0755)));
  EXPECT_FALSE(sound(perms(0775), perms(0755)));
  EXPECT_FALSE(sound(perms(0755), perms(0777)));
  EXPECT_FALSE(engineSignatureIsSound(scratch.path("missing")));
}

}  // namespace
}  // namespace tarnwick::platform
