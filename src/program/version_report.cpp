#include "program/version_report.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/installation_paths.hpp"
#include "base/standard_streams.hpp"
#include "platform/platform.hpp"
#include "vendor/database_header.hpp"
#include "vendor/vendor_items.hpp"

namespace tarnwick {
namespace {

std::string describe(const std::optional<double>& date) {
  if (!date) return "never";
  return platform::formatDate(*date, "yyyy-MM-dd HH:mm:ss ZZZZZ", platform::TimeZone::local);
}

std::optional<double> modificationDate(const std::string& path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return static_cast<double>(status.st_mtime);
}

}  // namespace

void writeVersionReport(const RunContext& context) {
  writeToStandardOutput(fmt::format("Tarnwick {}\n", context.toolVersion));
  const std::string container(containerName);
  const auto built = databaseBuildDateOfHeader(readDatabaseHeader(context, container));
  const auto version = databaseVersionOfHeader(readDatabaseHeader(context, container));
  writeToStandardOutput(fmt::format("{} (v{}) updated {}\n", container, version, describe(built)));
  // Always the folder below the prefix: this mode reads no argument after the first.
  for (const VendorItem& item : vendorItems()) {
    const std::string name = item.fileName();
    const auto date = modificationDate(fmt::format("{}/{}", fixedDatabaseDirectory(), name));
    writeToStandardOutput(fmt::format("{} updated {}\n", name, describe(date)));
  }
}

}  // namespace tarnwick
