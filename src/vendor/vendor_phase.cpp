#include "vendor/vendor_phase.hpp"

#include <filesystem>
#include <optional>
#include <string_view>

#include "base/durable_file.hpp"
#include "base/files.hpp"
#include "base/prefix.hpp"
#include "driver/run/console.hpp"
#include "driver/run/database_folder.hpp"
#include "platform/platform.hpp"
#include "vendor/cud_updater.hpp"
#include "vendor/database_header.hpp"
#include "vendor/definitions_updater.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

void announcePhase(const RunContext& context) {
  printMessage(context, "{:-<76}\nChecking Official VestRUM definitions\n{:-<38}", "", "");
  printMessage(context, "Update process started at {}", platform::currentDateAndTime());
}

void recordContainerDate(const RunContext& context, UpdateState& state) {
  const std::optional<double> built = databaseBuildDateOfFile(context, "VestRUM.cud");
  if (!built) return;
  state.record("hdb-Last-Modified", platform::formatDate(*built, "EEE, dd MMM yyyy HH:mm:ss zzz",
                                                         platform::TimeZone::gmt));
}

/// The container holds what these files held before there was one.
void removeSeparateFiles(const RunContext& context) {
  for (const std::string_view name :
       {"Vestrum.ndb", "Vestrum.hdb", "Vestrum.fp", "Vestrum.ign2", "Vestrum.ldb"}) {
    removeTree(inDataDirectory(context, name));
  }
}

/// Looks in the product's own folder and deletes in `dataDirectory`, which may be another one.
void removeHalfPair(const RunContext& context) {
  constexpr std::string_view file = "Vestrum.database";
  constexpr std::string_view signature = "Vestrum.database.signature";
  const fs::path fixedFolder(fixedDatabaseDirectory());
  if (fileExists(fixedFolder / file) && fileExists(fixedFolder / signature)) return;
  removeTree(inDataDirectory(context, file));
  removeTree(inDataDirectory(context, signature));
}

/// What a killed run left in the folders that this phase writes to.
void sweepLeftovers(const RunContext& context, const VendorSession& session) {
  removeCudLeftovers(session);
  removeTree(session.temporaryDirectory / "Vestrum.database");
  removeStagedLeftovers(fixedDatabaseDirectory());
  removeStagedLeftovers(context.dataDirectory);
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
  removeHalfPair(context);
  updateVendorFile(context, session, "database", state.storedValue("database-Last-Modified"),
                   state);
  // What was withdrawn must not come back with the power while its withdrawal is remembered.
  syncFolder(context.dataDirectory);
  state.commit();
}

}  // namespace tarnwick
