#include "program/run_driver.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <string>

#include "base/installation_paths.hpp"
#include "base/platform_log.hpp"
#include "base/standard_streams.hpp"
#include "driver/commands.hpp"
#include "driver/console.hpp"
#include "driver/interface_names.hpp"
#include "driver/network_wait.hpp"
#include "driver/termination.hpp"
#include "driver/update_state.hpp"
#include "platform/platform.hpp"
#include "program/command_line.hpp"
#include "program/prefix_rights.hpp"
#include "program/run_lock.hpp"
#include "program/version_report.hpp"
#include "program/wipe.hpp"
#include "transfer/http/tool_request.hpp"
#include "upstream/direct_download.hpp"
#include "upstream/freshclam_configuration.hpp"
#include "upstream/upstream_phase.hpp"
#include "vendor/vendor_phase.hpp"

namespace tarnwick {
namespace {

constexpr int noNetwork = 123;

/// Makes the folder for this run's temporary files, and removes it at the end if it is empty.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    if (!made_.whyNotAsAsked) return;
    platformLog(fmt::format("TMPDIR is not used: {}. Temporary files go to {}.",
                            *made_.whyNotAsAsked, made_.shownPath.string()));
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    if (made_.path) platform::releaseTemporaryDirectory(*made_.path);
  }

  [[nodiscard]] const platform::TemporaryDirectory& get() const { return made_; }

 private:
  platform::TemporaryDirectory made_ = platform::makeTemporaryDirectory();
};

/// Ignores the results: without these rights the run does as much as it can.
void becomeSuperUser() {
  [[maybe_unused]] const int user = ::setuid(0);
  [[maybe_unused]] const int group = ::setgid(0);
  if (::geteuid() == 0) return;
  platformLog("Not running as root: this run may be unable to install what it fetches.");
}

void checkScanningEngine(const RunContext& context) {
  if (platform::engineSignatureIsSound(context.clamscanPath)) return;
  printMessage(context, "Warning: the scanning engine {} is missing or may have been tampered with",
               context.clamscanPath);
}

/// The steps before the command line is read: their output is never quiet and never logged. False
/// without a network.
bool prepareRun(RunContext& context) {
  runShellCommand(fmt::format("chown root {}", inPrefix("")));
  reportPrefixRights();
  fixDatabasePermissions(context);
  if (!waitForNetwork(context)) return false;
  context.mirrorHost = settings::mirrorHost;
  prepareFreshclamConfiguration(context);
  checkScanningEngine(context);
  return true;
}

int updateEverything(RunContext& context) {
  removeUnfinishedDownloads(context);
  UpdateState state = UpdateState::open();
  HttpClient http(settings::largestDownload);
  const TemporaryDirectory temporaryDirectory;
  const VendorSession vendorSession{.http = http,
                                    .temporaryDirectory = temporaryDirectory.get(),
                                    .userAgent = toolUserAgent(context.toolVersion),
                                    .publicKey = settings::vendorPublicKey};
  updateVendorDefinitions(context, vendorSession, state);
  return updateUpstreamDatabases(context, http);
}

int runUpdate(RunContext& context, const Arguments& arguments) {
  becomeSuperUser();
  const RunLock lock = RunLock::acquire();
  if (!prepareRun(context)) return noNetwork;
  const bool removeOldFirst = asksToRemoveOldFirst(arguments);
  if (removeOldFirst) printMessage(context, "remove old DB files and freshclam log");
  readArguments(context, arguments);
  if (removeOldFirst) wipeDatabasesAndLog(context);
  return updateEverything(context);
}

}  // namespace

int runTarnwick(int argumentCount, char** arguments) {
  keepStandardDescriptorsOpen();  // before anything else opens a file
  RunContext context;
  const TerminationHandlers handlers(context);
  const Arguments given(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
  if (!asksForVersionReport(given)) return runUpdate(context, given);
  writeVersionReport(context);
  return 0;
}

}  // namespace tarnwick
