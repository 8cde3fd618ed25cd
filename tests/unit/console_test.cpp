#include "driver/console.hpp"

#include <gtest/gtest.h>

#include "scratch.hpp"

namespace tarnwick {
namespace {

void printSome(const RunContext& context) {
  printMessage(context, "\nplain {}", 1);
  printMessage(context, "Downloading Vestrum.{}", "x");
  printMessage(context, "Downloading {} [{:3}%]", "Vestrum.x", 7);
  printMessage(context, "own line feed\n");
}

TEST(Console, TheFormatAndNotTheLineKeepsOutOfTheLog) {
  const std::string inLog = "\nplain 1\nDownloading Vestrum.x [  7%]\nown line feed\n\n";
  const std::string onOutput =
      "\nplain 1\nDownloading Vestrum.x\nDownloading Vestrum.x [  7%]\nown line feed\n\n";
  for (const bool quiet : {false, true}) {
    for (const bool logged : {false, true}) {
      const test::Scratch scratch;
      RunContext context;
      context.quietMode = quiet;
      context.logEnabled = logged;
      context.logFile.open(scratch.path("log"));
      testing::internal::CaptureStdout();
      printSome(context);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), quiet ? "" : onOutput);
      EXPECT_EQ(scratch.read("log"), logged ? inLog : "");
    }
  }
}

TEST(Console, WritesToNoLogThatIsClosed) {
  const test::Scratch scratch;
  RunContext context;
  context.quietMode = true;
  context.logEnabled = true;
  context.logFile.open(scratch.path("log"));
  context.logFile.close();
  context.logFile.close();
  printSome(context);
  EXPECT_EQ(scratch.read("log"), "");
}

}  // namespace
}  // namespace tarnwick
