#include "driver/console.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/file_descriptor.hpp"
#include "testbed/scratch.hpp"

namespace tarnwick {
namespace {

TEST(Console, LeavesALineOutOfTheLogByItsFormatNotItsText) {
  const std::string inLog = "\nplain 1\nDownloading Vestrum.x [  7%]\n";
  const std::string onOutput =
      "\nplain 1\nDownloading Vestrum.x\nDownloading Vestrum.x [  7%]\nto a closed log\n\n";
  for (const bool quiet : {false, true}) {
    for (const bool logged : {false, true}) {
      const testbed::Scratch scratch;
      RunContext context;
      context.quietMode = quiet;
      if (logged) context.logFile.open(scratch.path("log"));
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

TEST(Console, WritesToALogThatIsAPipe) {
  const testbed::Scratch scratch;
  RunContext context;
  context.quietMode = true;
  ::mkfifo(scratch.path("pipe").c_str(), 0600);
  context.logFile.open(scratch.path("pipe"));
  printMessage(context, "nobody reads");
  const FileDescriptor reader(::open(scratch.path("pipe").c_str(), O_RDONLY | O_NONBLOCK));
  context.logFile.open(scratch.path("pipe"));
  const std::string page(4000, '.');
  std::string written = "read\n";
  printMessage(context, "read");
  // The writer does not wait for a reader that stops reading; the pipe then holds whole lines.
  for (int i = 0; i < 18; ++i) printMessage(context, "{}", page);
  std::string taken(1U << 20U, '\0');
  taken.resize(static_cast<std::size_t>(readSome(reader.get(), taken)));
  while (written.size() < taken.size()) written += page + '\n';
  EXPECT_TRUE(taken.size() > 60000 && taken == written) << taken.size();
}

}  // namespace
}  // namespace tarnwick
