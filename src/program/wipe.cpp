#include "program/wipe.hpp"

#include <fmt/format.h>

#include <string>

#include "base/file_tree.hpp"
#include "driver/commands.hpp"
#include "driver/database_folder.hpp"
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

void wipeLog(RunContext& context) {
  if (context.logFile.path()) return context.logFile.beginAnew();
  if (dataDirectoryUse(context) != DataDirectoryUse::commands) return;
  beginLogAnew(inDataDirectory(context, "freshclam.log").string());
}

void wipeDatabases(const RunContext& context) {
  const DataDirectoryUse use = dataDirectoryUse(context);
  if (use == DataDirectoryUse::nothing) return;
  removeTree(inDataDirectory(context, containerName));
  for (const VendorItem& item : vendorItems()) {
    removeTree(inDataDirectory(context, item.fileName()));
  }
  // A pattern must not match in the root of the file system.
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
