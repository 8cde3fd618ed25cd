#include "upstream/freshclam_run.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>

#include "base/files.hpp"
#include "base/prefix.hpp"
#include "driver/run/commands.hpp"
#include "driver/run/console.hpp"
#include "driver/run/database_folder.hpp"
#include "driver/run/update_state.hpp"
#include "upstream/direct_download.hpp"
#include "upstream/freshclam_configuration.hpp"

namespace tarnwick {
namespace {

constexpr int connectionProblem = 52;

/// What callers know as the exit status: a plain shift. -1, a shell that could not be started,
/// stays -1; a shell that was itself killed by a signal gives 0.
int shiftedStatus(int rawStatus) {
  return rawStatus >> 8;
}

void copyConfiguration(std::string_view from, std::string_view to) {
  runShellCommand(fmt::format("cp -Rp {0}/{1} {0}/{2}", inPrefix("etc"), from, to));
}

void restoreSpareConfiguration() {
  copyConfiguration("freshclam.conf", "freshclamFAULTY.conf");
  copyConfiguration("freshclamBAK.conf", "freshclam.conf");
}

void restoreCleanConfiguration() {
  copyConfiguration("freshclamCLEAN.conf", "freshclam.conf");
}

void killOtherFreshclams(RunContext& context) {
  context.logFile.close();
  runShellCommand("killall freshclam");
}

/// What is done about an exit status of `freshclam` before it is run once more.
struct Rung {
  std::span<const int> statuses;
  void (*repair)(RunContext& context);
};

// Cannot enter the database folder, delete a file there, create one.
constexpr std::array folderProblem{50, 53, 57};
// No connection, a database altered, the mirror unreadable, mirrors not in step.
constexpr std::array mirrorProblem{52, 54, 58, 59};
constexpr std::array configurationError{56};
constexpr std::array loggerProblem{62};

/// Gone through once, from first to last; each looks at the status that the ones before it left.
constexpr auto recoveryLadder = std::to_array<Rung>({
    {folderProblem, [](RunContext& context) { fixDatabasePermissions(context); }},
    {mirrorProblem, [](RunContext& context) { switchFreshclamMirror(context, false); }},
    {configurationError, [](RunContext&) { restoreSpareConfiguration(); }},
    {configurationError, [](RunContext&) { restoreCleanConfiguration(); }},
    {loggerProblem, killOtherFreshclams},
});

int runFreshclam(const RunContext& context) {
  return runInterruptibleShellCommand(context.freshclamCommand);
}

int runFreshclamWithRepairs(RunContext& context) {
  int rawStatus = runFreshclam(context);
  for (const Rung& rung : recoveryLadder) {
    const int status = shiftedStatus(rawStatus);
    if (std::ranges::find(rung.statuses, status) == rung.statuses.end()) continue;
    rung.repair(context);
    rawStatus = runFreshclam(context);
  }
  return rawStatus;
}

void runProxyHelper(const RunContext& context) {
  const std::string helper = inPrefix("bin/VestrumProxyHelper");
  if (!fileExists(helper)) return;
  printMessage(context, "Checking proxy settings");
  runShellCommand(helper);
}

void fetchMissingDatabases(const RunContext& context, HttpClient& http) {
  for (const std::string_view name : databaseNames) {
    if (!databaseIsInstalled(context, name)) downloadFullDatabase(context, http, name);
  }
}

/// Runs `freshclam` with the log left to it alone.
int bringUpstreamForward(RunContext& context, HttpClient& http) {
  context.logFile.close();
  const int rawStatus = runFreshclamWithRepairs(context);
  if (context.logEnabled && context.logPath) context.logFile.open(*context.logPath);
  if (shiftedStatus(rawStatus) != connectionProblem) return rawStatus;
  printMessage(context, "Still failing with network issues. Download full file.");
  return updateByVersionRecord(context, http).value_or(rawStatus);
}

/// A vendor file that changed turns "nothing done" into "something done", as the caller reads it.
int toolExitStatus(const RunContext& context, int rawStatus) {
  const int status = shiftedStatus(rawStatus);
  const bool freshclamWasContent = static_cast<unsigned>(status) < 2;
  return freshclamWasContent && context.definitionsChanged ? 1 : status;
}

}  // namespace

int updateUpstreamDatabases(RunContext& context, HttpClient& http) {
  runProxyHelper(context);
  printMessage(context, "\nChecking ClamAV definitions");
  // By now the vendor phase has taken over what earlier releases left there, and it must not be
  // found once more.
  UpdateState::retireOlderDomain();
  fetchMissingDatabases(context, http);
  const int rawStatus = bringUpstreamForward(context, http);
  context.logFile.close();
  fixDatabasePermissions(context);
  switchFreshclamMirror(context, false);
  return toolExitStatus(context, rawStatus);
}

}  // namespace tarnwick
