#include "upstream/recovery_ladder.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "base/installation_paths.hpp"
#include "driver/commands.hpp"
#include "driver/interface_names.hpp"
#include "upstream/freshclam_configuration.hpp"

namespace tarnwick {
namespace {

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
  context.logFile.handOver();
  runShellCommand("killall freshclam");
}

/// A repair after some exit statuses of `freshclam`, which then runs once more.
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

/// A run tries each rung once, in this order, against the status of the last `freshclam`.
constexpr auto recoveryLadder = std::to_array<Rung>({
    {folderProblem, [](RunContext& context) { fixDatabasePermissions(context); }},
    {mirrorProblem, [](RunContext& context) { switchFreshclamMirror(context, false); }},
    {configurationError, [](RunContext&) { restoreSpareConfiguration(); }},
    {configurationError, [](RunContext&) { restoreCleanConfiguration(); }},
    {loggerProblem, killOtherFreshclams},
});

ExitStatus runFreshclam(const RunContext& context) {
  return runShellCommand(context.freshclamCommand);
}

}  // namespace

ExitStatus runFreshclamWithRepairs(RunContext& context) {
  ExitStatus status = runFreshclam(context);
  for (const Rung& rung : recoveryLadder) {
    if (std::ranges::find(rung.statuses, status.number()) == rung.statuses.end()) continue;
    rung.repair(context);
    status = runFreshclam(context);
  }
  return status;
}

}  // namespace tarnwick
