#include "program/wipe.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "base/files.hpp"
#include "driver/commands.hpp"
#include "driver/database_folder.hpp"
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

void makeLogAnew(const std::string& log) {
  if (othersCanPlaceLink(log)) {  // at any moment, so that no step may follow one
    openLogToAll(log);
    runShellCommand(fmt::format("chown -h clamav:clamav {}", log));
    return;
  }
  runShellCommand(fmt::format("touch {}", log));
  runShellCommand(fmt::format("chown clamav:clamav {}", log));
  runShellCommand(fmt::format("chmod a+rw {}", log));
}

/// A pipe or a device, such as /dev/stdout, holds nothing old, and is not ours to remove.
void removeLog(const std::string& log) {
  struct stat status = {};
  if (::stat(log.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) return;
  ::unlink(log.c_str());
}

void wipeLog(RunContext& context) {
  if (!context.logPath) {
    if (dataDirectoryUse(context) != DataDirectoryUse::commands) return;
    const std::string log = inDataDirectory(context, "freshclam.log").string();
    ::unlink(log.c_str());
    makeLogAnew(log);
    return;
  }
  context.logFile.close();
  removeLog(*context.logPath);
  makeLogAnew(*context.logPath);
  context.logFile.open(*context.logPath);
}

void wipeDatabases(const RunContext& context) {
  const DataDirectoryUse use = dataDirectoryUse(context);
  if (use == DataDirectoryUse::nothing) return;
  removeTree(inDataDirectory(context, containerName));
  for (const VendorItem& item : vendorItems()) {
    removeTree(inDataDirectory(context, item.fileName()));
  }
  // Patterns must not reach the root of the file system.
  if (use != DataDirectoryUse::commands) return;
  for (const auto* const pattern : {"*.cld", "*.cvd"}) {
    runShellCommand(fmt::format("rm -f {}", inDataDirectory(context, pattern).string()));
  }
}

}  // namespace

void wipeDatabasesAndLog(RunContext& context) {
  wipeDatabases(context);
  wipeLog(context);
}

}  // namespace tarnwick
