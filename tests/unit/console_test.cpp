#include "driver/run/console.hpp"

#include <gtest/gtest.h>

#include "scratch.hpp"

namespace tarnwick {
namespace {

TEST(Console, TheFormatAndNotTheLineKeepsOutOfTheLog) {
  const std::string inLog = "\nplain 1\nDownloading Vestrum.x [  7%]\n";
  const std::string onOutput =
      "\nplain 1\nDownloading Vestrum.x\nDownloading Vestrum.x [  7%]\nto a closed log\n\n";
  for (const bool quiet : {false, true}) {
    for (const bool logged : {false, true}) {
      const test::Scratch scratch;
      RunContext context;
      context.quietMode = quiet;
      context.logEnabled = logged;
      context.logFile.open(scratch.path("log"));
      testing::internal::CaptureStdout();
      printMessage(context, "\nplain {}", 1);
      printMessage(context, "Downloading Vestrum.{}", "x");
      printMessage(context, "Downloading {} [{:3}%]", "Vestrum.x", 7);
      context.logFile.close();
      printMessage(context, "to a closed log\n");
      EXPECT_EQ(testing::internal::GetCapturedStdout(), quiet ? "" : onOutput);
      EXPECT_EQ(scratch.read("log"), logged ? inLog : "");
    }
  }
}

}  // namespace
}  // namespace tarnwick
