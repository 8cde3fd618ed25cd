#include "vendor/database_header.hpp"

#include <gtest/gtest.h>

#include "testbed/scratch.hpp"

namespace tarnwick {
namespace {

const std::string good = "ClamAV-VDB:12 Nov 2026 10-00 +0000:1234:40:90:X:X:builder:1794477600";

struct Case {
  std::string content;
  std::optional<std::string> header;
  std::int64_t version;
};

TEST(DatabaseHeader, ReadsTheFirstLineOfAnything) {
  const testbed::Scratch scratch;
  const RunContext context;
  const Case cases[] = {
      {good + std::string(512 - good.size(), ' ') + "\x1F\x8B", good, 1234},
      {good + "\r\nsecond line\n", good + "\r", 1234},
      {good + " \r\n \n", good, 1234},
      {" ", " ", 0},
      {"\n\n\n", "", 0},
      {"a:b:-7:::::x:", "a:b:-7:::::x:", -7},
      {"a:b:99999999999999999999:::::x:0", "a:b:99999999999999999999:::::x:0",
       std::numeric_limits<std::int64_t>::max()},
      {good + ":tenth", good + ":tenth", 0},
      {"eight:1:2:3:4:5:6:7", "eight:1:2:3:4:5:6:7", 0},
      {std::string("ab\0cd", 5), "ab", 0},
      {"\xFF\xFE", std::nullopt, 0},
      {std::string(600, 'x'), std::string(512, 'x'), 0},
  };
  for (const Case& expected : cases) {
    const std::string file = scratch.write("file", expected.content);
    EXPECT_EQ(readDatabaseHeader(context, file), expected.header) << expected.content;
    EXPECT_EQ(databaseVersionOfFile(context, file), expected.version) << expected.content;
  }
  EXPECT_EQ(databaseBuildDateOfFile(context, scratch.write("file", good)), 1794477600.0);
  EXPECT_EQ(databaseVersionOfHeader(std::nullopt), 0);
}

}  // namespace
}  // namespace tarnwick
