#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "driver/exit_status.hpp"

namespace tarnwick {

/// Passes a command line to the system shell, unchanged, and waits for the shell to end. Returns
/// ExitStatus::unknown if the machine lacks the resources to start it. Most callers ignore the
/// status: what they ask for either is done or cannot be helped. Unlike the C library's `system`,
/// leaves this program's signal dispositions alone: a termination signal terminates the command and
/// its descendants too.
ExitStatus runShellCommand(const std::string& commandLine);

/// Where a program's standard output and standard error go.
enum class ProgramOutput {
  inherited,  ///< to this program's own
  dropped,    ///< to two pipes that the run drains and whose content it discards
  captured,   ///< to one pipe, whose content the run keeps; standard input is an empty pipe
};

struct ProgramRun {
  std::string executable;
  std::vector<std::string> arguments;
  std::optional<std::filesystem::path> workingDirectory = {};
  ProgramOutput output = ProgramOutput::inherited;
};

struct ProgramResult {
  ExitStatus status = ExitStatus::unknown();  ///< also if the program could not be started
  std::string output;                         ///< only if captured: the first mebibyte
};

/// Runs a program directly, without a shell, and waits for it to end. A termination signal to this
/// program terminates the child and its descendants too.
[[nodiscard]] ProgramResult runProgram(const ProgramRun& run);

}  // namespace tarnwick
