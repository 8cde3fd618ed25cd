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

/// Leaves the log to `freshclam` while that runs.
ExitStatus bringUpstreamForward(RunContext& context, HttpClient& http) {
  context.logFile.handOver();
  const ExitStatus status = runFreshclamWithRepairs(context);
  context.logFile.takeBack();
  if (status.number() != connectionProblem) return status;
  printMessage(context, "Still failing with network issues. Download full file.");
  return updateByVersionRecord(context, http).value_or(status);
}

/// After a success of `freshclam`, 0 or 1, the run reports 1 if an item of the vendor changed.
int exitStatusOfRun(const RunContext& context, ExitStatus freshclam) {
  const int status = freshclam.number();
  const bool freshclamSucceeded = status == 0 || status == 1;
  return freshclamSucceeded && context.definitionsChanged ? 1 : status;
}

}  // namespace

int updateUpstreamDatabases(RunContext& context, HttpClient& http) {
  runProxyHelper(context);
  printMessage(context, "\nChecking ClamAV definitions");
  // The vendor phase has committed the values that an earlier release left in that domain.
  UpdateState::retireOlderDomain();
  fetchMissingDatabases(context, http);
  const ExitStatus freshclam = bringUpstreamForward(context, http);
  context.logFile.close();
  fixDatabasePermissions(context);
  switchFreshclamMirror(context, false);
  return exitStatusOfRun(context, freshclam);
}

}  // namespace tarnwick
