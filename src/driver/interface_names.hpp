#pragma once

#include "driver/commands.hpp"
#include "driver/database_folder.hpp"
#include "driver/run_context.hpp"

/// Operations under the names that the description of this program's interfaces uses. Each only
/// calls the functions that do the work.
namespace tarnwick {

[[nodiscard]] inline ProgramResult runTool(const ProgramRun& run) {
  return runProgram(run);
}

/// Sets the owner and the modes of the databases, and of the log if one is named.
inline void fixDatabasePermissions(const RunContext& context) {
  giveDatabasesToClamav(context);
  context.logFile.giveToAll();
}

}  // namespace tarnwick
