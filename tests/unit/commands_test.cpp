#include "driver/commands.hpp"

#include <gtest/gtest.h>

#include "driver/database_folder.hpp"

namespace tarnwick {
namespace {

constexpr auto usualDirectory = "/usr/local/vestRum/share/clamav";

TEST(Commands, KeepTheRootOfTheFileSystemFromRecursiveCommands) {
  RunContext context;
  context.dataDirectory = "";
  EXPECT_EQ(dataDirectoryUse(context), DataDirectoryUse::nothing);
  for (const auto* const directory : {"/", "///", "/.", "/usr/..", "//./", "/ ", "x /", "/*/..",
                                      "''", "$NONE", "/proc/self/root"}) {
    context.dataDirectory = directory;
    EXPECT_EQ(dataDirectoryUse(context), DataDirectoryUse::files) << directory;
  }
  for (const auto* const directory : {usualDirectory, "relative", "/usr", "/srv/a#b"}) {
    context.dataDirectory = directory;
    EXPECT_EQ(dataDirectoryUse(context), DataDirectoryUse::commands) << directory;
  }
}

TEST(Commands, EndWithTheirChildWhateverItsOutput) {
  const std::string flood = "head -c 3000000 /dev/zero; head -c 3000000 /dev/zero >&2; exit 3";
  for (const ProgramOutput output : {ProgramOutput::dropped, ProgramOutput::captured}) {
    EXPECT_EQ(runProgram({.executable = "/bin/sh", .arguments = {"-c", flood}, .output = output})
                  .status.number(),
              3);
  }
  // A descendant that outlives the child keeps its pipes open.
  const ProgramResult left =
      runProgram({.executable = "/bin/sh",
                  .arguments = {"-c", "echo said; cat; sleep 1000 & echo $!"},
                  .output = ProgramOutput::captured});
  EXPECT_TRUE(left.status.isSuccess());
  EXPECT_TRUE(left.output.starts_with("said\n"));
  EXPECT_TRUE(runShellCommand("kill " + left.output.substr(5)).isSuccess());
}

TEST(Commands, CaptureAllOutputOfAChildThatEndsWhileTheRunIsStopped) {
  // The child stops this process, writes more than one read takes, and ends. Its own child then
  // continues this process.
  const auto* const child =
      "import fcntl, os\n"
      "parent, child = os.getppid(), os.getpid()\n"
      "def wait_until(process, state):\n"
      "    while f') {state} ' not in open(f'/proc/{process}/stat').read(): pass\n"
      "if os.fork() == 0:\n"
      "    os.closerange(0, 3)\n"
      "    wait_until(child, 'Z')\n"
      "    os.kill(parent, 18)\n"
      "    os._exit(0)\n"
      "os.kill(parent, 19)\n"
      "wait_until(parent, 'T')\n"
      "fcntl.fcntl(1, 1031, 1 << 20)\n"  // F_SETPIPE_SZ
      "os.write(1, bytes(100000))\n"
      "os._exit(0)\n";
  const ProgramResult result = runProgram({.executable = "/usr/bin/python3",
                                           .arguments = {"-c", child},
                                           .output = ProgramOutput::captured});
  EXPECT_EQ(result.output.size(), 100000U);
}

TEST(Commands, ReportTheStatusOfAChild) {
  const auto run = [](const ProgramRun& program) { return runProgram(program).status; };
  EXPECT_FALSE(run({.executable = "/no/such/program", .arguments = {}}).isSuccess());
  EXPECT_FALSE(run({.executable = "/bin/sh", .arguments = {"-c", "kill -9 $$"}}).isSuccess());
  EXPECT_FALSE(
      run({.executable = "/bin/true", .arguments = {}, .workingDirectory = "/none"}).isSuccess());
  EXPECT_EQ(runShellCommand("exit 56").number(), 56);
  const ExitStatus killed = runShellCommand("kill -9 $$");
  EXPECT_FALSE(killed.isSuccess());
  EXPECT_EQ(killed.number(), 0);
  EXPECT_EQ(ExitStatus::exited(234).number(), 234);
  EXPECT_EQ(ExitStatus::unknown().number(), -1);
}

}  // namespace
}  // namespace tarnwick
