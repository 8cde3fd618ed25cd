#include "vendor/vendor_phase.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>

#include "base/durable_file.hpp"
#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "base/platform_log.hpp"
#include "driver/console.hpp"
#include "driver/database_folder.hpp"
#include "platform/platform.hpp"
#include "vendor/cud_updater.hpp"
#include "vendor/database_header.hpp"
#include "vendor/item_updater.hpp"
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

void announcePhase(const RunContext& context) {
  printMessage(context, "{:-<76}\nChecking Official VestRUM definitions\n{:-<38}", "", "");
  printMessage(context, "Update process started at {}", platform::currentDateAndTime());
}

void recordContainerDate(const RunContext& context, UpdateState& state) {
  const auto header = readDatabaseHeader(context, std::string(containerName));
  const std::optional<double> built = databaseBuildDateOfHeader(header);
  if (!built) return;
  state.record(containerStateKey, platform::formatDate(*built, "EEE, dd MMM yyyy HH:mm:ss zzz",
                                                       platform::TimeZone::gmt));
}

/// The container now has the content of these files.
void removeSeparateFiles(const RunContext& context) {
  for (const VendorItem& item : vendorItems()) {
    if (item.inContainer) removeTree(inDataDirectory(context, item.fileName()));
  }
}

/// Deletes the file or its signature where the other is missing. Looks in the fixed folder and
/// deletes in `dataDirectory`, even if these differ.
void removeHalfPair(const RunContext& context, const VendorItem& item) {
  const fs::path fixedFolder(fixedDatabaseDirectory());
  if (fileExists(fixedFolder / item.fileName()) &&
      fileExists(fixedFolder / item.signatureFileName())) {
    return;
  }
  removeTree(inDataDirectory(context, item.fileName()));
  removeTree(inDataDirectory(context, item.signatureFileName()));
}

void updateItem(RunContext& context, const VendorSession& session, const VendorItem& item,
                UpdateState& state) {
  if (!item.scannerDecides) removeHalfPair(context, item);
  updateVendorFile(context, session, item, state.storedValue(item.stateKey()), state);
}

/// Deletes what a killed run left in the folders to which this phase writes.
void sweepLeftovers(const RunContext& context, const VendorSession& session) {
  removeContainerLeftovers(session);
  for (const VendorItem& item : vendorItems()) {
    for (const std::string& name : {item.fileName(), item.publishedFileName()}) {
      if (const auto left = session.temporaryFile(name)) removeTree(*left);
    }
  }
  removeStagedLeftovers(fixedDatabaseDirectory());
  removeStagedLeftovers(context.dataDirectory);
  removeFolderNamed(context, containerName);
  for (const VendorItem& item : vendorItems()) {
    removeFolderNamed(context, item.fileName());
    removeFolderNamed(context, item.signatureFileName());
  }
}

/// Commits the state only if the folder was synced first. Otherwise a loss of power could bring a
/// withdrawn file back while the state says that it is gone.
void rememberOnDisk(const RunContext& context, const UpdateState& state) {
  std::optional<FileFailure> failure = syncFolder(context.dataDirectory);
  if (!failure) failure = state.commit();
  if (!failure) return;
  platformLog(fmt::format("Cannot remember what is installed, and may fetch it again: {}",
                          describe(*failure)));
}

}  // namespace

void updateVendorDefinitions(RunContext& context, const VendorSession& session,
                             UpdateState& state) {
  sweepLeftovers(context, session);
  announcePhase(context);
  context.definitionsChanged = false;
  if (updateIncrementalDatabase(context, session)) {
    recordContainerDate(context, state);
    removeSeparateFiles(context);
  }
  for (const VendorItem& item : vendorItems()) {
    if (!item.inContainer) updateItem(context, session, item, state);
  }
  rememberOnDisk(context, state);
}

}  // namespace tarnwick
