#include "upstream/upstream_phase.hpp"

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "driver/commands.hpp"
#include "driver/console.hpp"
#include "driver/database_folder.hpp"
#include "driver/interface_names.hpp"
#include "driver/update_state.hpp"
#include "upstream/direct_download.hpp"
#include "upstream/freshclam_configuration.hpp"
#include "upstream/recovery_ladder.hpp"

namespace tarnwick {
namespace {

constexpr int connectionProblem = 52;

void runProxyHelper(const RunContext& context) {
  const std::string helper = inPrefix("bin/VestrumProxyHelper");
  if (!fileExists(helper)) return;
  printMessage(context, "Checking proxy settings");
  runShellCommand(helper);
}

void fetchMissingDatabases(const RunContext& context, HttpClient& http) {
  for (const std::string_view name : databaseNames) {
    for (const auto* const ending : {"cvd", "cld"}) {
      removeFolderNamed(context, fmt::format("{}.{}", name, ending));
    }
    if (!databaseIsInstalled(context, name)) downloadFullDatabase(context, http, name);
  }
}

/// Runs `freshclam` with the log left to it alone.
ExitStatus bringUpstreamForward(RunContext& context, HttpClient& http) {
  context.logFile.handOver();
  const ExitStatus status = runFreshclamWithRepairs(context);
  context.logFile.takeBack();
  if (status.number() != connectionProblem) return status;
  printMessage(context, "Still failing with network issues. Download full file.");
  return updateByVersionRecord(context, http).value_or(status);
}

/// A vendor file that changed turns "nothing done" into "something done", as the caller reads it.
int exitStatusOfRun(const RunContext& context, ExitStatus freshclam) {
  const int status = freshclam.number();
  const bool freshclamSucceeded = status == 0 || status == 1;
  return freshclamSucceeded && context.definitionsChanged ? 1 : status;
}

}  // namespace

int updateUpstreamDatabases(RunContext& context, HttpClient& http) {
  runProxyHelper(context);
  printMessage(context, "\nChecking ClamAV definitions");
  // By now the vendor phase has taken over what earlier releases left there, and it must not be
  // found once more.
  UpdateState::retireOlderDomain();
  fetchMissingDatabases(context, http);
  const ExitStatus freshclam = bringUpstreamForward(context, http);
  context.logFile.close();
  fixDatabasePermissions(context);
  switchFreshclamMirror(context, false);
  return exitStatusOfRun(context, freshclam);
}

}  // namespace tarnwick
