#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick {

/// Hands a command line to the system shell as it stands and waits for it. Returns the raw wait
/// status: the exit status is that value shifted right by eight bits; -1 when the shell could not
/// be started. Unlike the C library's `system`, leaves this program's signals as they are: a
/// termination signal ends the command and its descendants too.
int runShellCommand(const std::string& commandLine);

/// What becomes of a program's standard output and standard error.
enum class ProgramOutput {
  inherited,  ///< goes where ours goes
  dropped,    ///< goes to two pipes whose content nobody reads
  captured,   ///< both go to one pipe, and standard input is an empty pipe
};

struct ProgramRun {
  std::string executable;
  std::vector<std::string> arguments;
  std::optional<std::filesystem::path> workingDirectory = {};
  ProgramOutput output = ProgramOutput::inherited;
};

struct ProgramResult {
  /// The exit status. A program that was killed or could not be started has one that is not 0.
  int status = -1;
  std::string output;  ///< only when captured: its first mebibyte
};

/// Runs a program directly, without a shell, and waits for it to end. A termination signal to this
/// program ends it and its descendants too.
ProgramResult runProgram(const ProgramRun& run);

}  // namespace tarnwick
