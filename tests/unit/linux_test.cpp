#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "platform/platform.hpp"

namespace tarnwick::platform {
namespace {

TEST(Dates, FollowOnlyLocalesThatExist) {
  const auto expect = [](const std::string& name, const char* pattern) {
    ::setenv("LC_ALL", name.c_str(), 1);
    EXPECT_TRUE(std::regex_match(currentDateAndTime(), std::regex(pattern))) << name;
  };
  for (const std::string& name :
       {std::string(), std::string("POSIX"), std::string("C.UTF-8"), std::string("en_US.UTF-8"),
        std::string("abcdefghijkl"), "de_DE_" + std::string(200, 'A'),
        "de.UTF-8@" + std::string(200, 'a'), std::string("../../de")}) {
    expect(name, "[A-Z][a-z]{2} [0-9]+, 20[0-9]{2}, [0-9:]+.+[AP]M");
  }
  for (const auto* const name : {"de", "de_DE.UTF-8", "de_Latn_DE@euro"}) {
    expect(name, "[0-9.]{10}, [0-9:]{8}");
  }
  ::unsetenv("LC_ALL");
}

}  // namespace
}  // namespace tarnwick::platform
