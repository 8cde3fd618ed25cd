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
#include "vendor/definitions_updater.hpp"
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

void announcePhase(const RunContext& context) {
  printMessage(context, "{:-<76}\nChecking Official VestRUM definitions\n{:-<38}", "", "");
  printMessage(context, "Update process started at {}", platform::currentDateAndTime());
}

void recordContainerDate(const RunContext& context, UpdateState& state) {
  const std::optional<double> built = databaseBuildDateOfFile(context, std::string(containerName));
  if (!built) return;
  state.record("hdb-Last-Modified", platform::formatDate(*built, "EEE, dd MMM yyyy HH:mm:ss zzz",
                                                         platform::TimeZone::gmt));
}

/// The container holds what these files held before there was one.
void removeSeparateFiles(const RunContext& context) {
  for (const VendorItem& item : vendorItems()) {
    if (item.inContainer) removeTree(inDataDirectory(context, item.fileName()));
  }
}

/// Looks in the product's own folder and deletes in `dataDirectory`, which may be another one.
void removeHalfPair(const RunContext& context, const VendorItem& item) {
  const std::string file = item.fileName();
  const std::string signature = file + ".signature";
  const fs::path fixedFolder(fixedDatabaseDirectory());
  if (fileExists(fixedFolder / file) && fileExists(fixedFolder / signature)) return;
  removeTree(inDataDirectory(context, file));
  removeTree(inDataDirectory(context, signature));
}

void updateItem(RunContext& context, const VendorSession& session, const VendorItem& item,
                UpdateState& state) {
  // The signature is kept beside a file that the scanner does not vouch for.
  if (!item.scannerDecides) removeHalfPair(context, item);
  updateVendorFile(context, session, item.publishedName(),
                   state.storedValue(fmt::format("{}-Last-Modified", item.name)), state);
}

/// What a killed run left in the folders that this phase writes to.
void sweepLeftovers(const RunContext& context, const VendorSession& session) {
  removeCudLeftovers(session);
  for (const VendorItem& item : vendorItems()) {
    removeTree(session.temporaryDirectory / item.fileName());
    removeTree(session.temporaryDirectory / fmt::format("Vestrum.{}", item.publishedName()));
  }
  removeStagedLeftovers(fixedDatabaseDirectory());
  removeStagedLeftovers(context.dataDirectory);
  removeFolderNamed(context, containerName);
  for (const VendorItem& item : vendorItems()) {
    removeFolderNamed(context, item.fileName());
    removeFolderNamed(context, item.fileName() + ".signature");
  }
}

/// What was withdrawn must not come back with the power while its withdrawal is remembered, so
/// that nothing new is remembered where the folder cannot be brought to the disk.
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
