#include "driver/program/run_driver.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <string>

#include "base/durable_file.hpp"
#include "base/file_descriptor.hpp"
#include "driver/program/command_line.hpp"
#include "driver/run/commands.hpp"
#include "driver/run/console.hpp"
#include "driver/run/network_wait.hpp"
#include "driver/program/run_lock.hpp"
#include "driver/run/termination.hpp"
#include "driver/run/update_state.hpp"
#include "driver/program/version_report.hpp"
#include "platform/platform.hpp"
#include "transfer/tool_request.hpp"
#include "upstream/freshclam_run.hpp"
#include "vendor/definitions_updater.hpp"

namespace tarnwick {
namespace {

constexpr int noNetwork = 123;

/// The folder for this run's temporary files, removed at the end if nothing is left in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(platform::makeTemporaryDirectory()) {}
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() { platform::releaseTemporaryDirectory(path_); }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// Results ignored: without the rights the run does what it can.
void becomeSuperUser() {
  [[maybe_unused]] const int user = ::setuid(0);
  [[maybe_unused]] const int group = ::setgid(0);
}

void checkScanningEngine(const RunContext& context) {
  if (platform::engineSignatureIsSound(context.clamscanPath)) return;
  printMessage(context, "Warning: the scanning engine {} is missing or may have been tampered with",
               context.clamscanPath);
}

void makeLogAnew(const std::string& log) {
  runShellCommand(fmt::format("touch {}", log));
  runShellCommand(fmt::format("chown clamav:clamav {}", log));
  runShellCommand(fmt::format("chmod a+rw {}", log));
}

void wipeLog(RunContext& context) {
  if (!context.logPath) {
    if (!dataDirectoryFitsInCommand(context)) return;
    const std::string log = inDataDirectory(context, "freshclam.log").string();
    ::unlink(log.c_str());
    makeLogAnew(log);
    return;
  }
  context.logFile.close();
  ::unlink(context.logPath->c_str());
  makeLogAnew(*context.logPath);
  context.logFile.open(*context.logPath);
}

void wipeDatabases(const RunContext& context) {
  if (context.dataDirectory.empty()) return;  // the working directory is not meant
  for (const auto* const name : {"VestRUM.cud", "Vestrum.ndb", "Vestrum.hdb", "Vestrum.fp",
                                 "Vestrum.ign2", "Vestrum.database", "Vestrum.ldb"}) {
    removeTree(inDataDirectory(context, name));
  }
  // Patterns must not reach the root of the file system.
  if (!dataDirectoryFitsInCommand(context)) return;
  for (const auto* const pattern : {"*.cld", "*.cvd"}) {
    runShellCommand(fmt::format("rm -f {}", inDataDirectory(context, pattern).string()));
  }
}

/// Everything before the command line is read: none of it is quiet, none of it is logged.
bool prepareRun(RunContext& context) {
  runShellCommand("chown root /usr/local/vestRum");
  fixDatabasePermissions(context);
  if (!waitForNetwork(context)) return false;
  context.mirrorHost = settings::mirrorHost;
  prepareFreshclamConfiguration(context);
  checkScanningEngine(context);
  return true;
}

int updateEverything(RunContext& context) {
  UpdateState state;
  state.open();
  HttpClient http;
  const TemporaryDirectory temporaryDirectory;
  const VendorSession vendorSession{.http = http,
                                    .temporaryDirectory = temporaryDirectory.path(),
                                    .userAgent = toolUserAgent(context.toolVersion)};
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
  if (removeOldFirst) {
    wipeDatabases(context);
    wipeLog(context);
  }
  return updateEverything(context);
}

}  // namespace

int runTarnwick(int argumentCount, char** arguments) {
  keepStandardDescriptorsOpen();  // before anything can be opened in their place
  RunContext context;
  const TerminationHandlers handlers(context);
  const Arguments given(arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount);
  if (!asksForVersionReport(given)) return runUpdate(context, given);
  writeVersionReport(context);
  return 0;
}

}  // namespace tarnwick
