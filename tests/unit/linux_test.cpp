#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <regex>

#include "platform/platform.hpp"
#include "testbed/scratch.hpp"

namespace tarnwick::platform {
namespace {

TEST(Dates, FollowNoLocaleThatIsNone) {
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

TEST(Engine, MustBeRootsAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs files that belong to root";
  using std::filesystem::perms;
  const testbed::Scratch scratch;
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
