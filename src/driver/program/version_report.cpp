#include "driver/program/version_report.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/prefix.hpp"
#include "base/standard_streams.hpp"
#include "platform/platform.hpp"
#include "vendor/database_header.hpp"

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

void writeLine(const std::string& line) {
  writeToStandardOutput(line);
}

}  // namespace

void writeVersionReport(const RunContext& context) {
  writeLine(fmt::format("Tarnwick {}\n", context.toolVersion));
  const std::string container = "VestRUM.cud";
  const std::optional<double> built = databaseBuildDateOfFile(context, container);
  const std::int64_t version = databaseVersionOfFile(context, container);
  writeLine(fmt::format("{} (v{}) updated {}\n", container, version, describe(built)));
  // Always the product's own folder, as nothing on the command line is looked at.
  for (const std::string_view name : {"Vestrum.fp", "Vestrum.hdb", "Vestrum.ign2", "Vestrum.ndb",
                                      "Vestrum.ldb", "Vestrum.database"}) {
    const auto date = modificationDate(fmt::format("{}/{}", fixedDatabaseDirectory(), name));
    writeLine(fmt::format("{} updated {}\n", name, describe(date)));
  }
}

}  // namespace tarnwick
