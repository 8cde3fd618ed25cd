#include "fuzz.hpp"
#include "upstream/direct_download.hpp"
#include "vendor/cud_updater.hpp"

namespace tarnwick::fuzz {

static std::int64_t reportedByModel(std::string_view report) {
  std::int64_t version = -1;
  for (const std::string& line : splitByModel(report, '\n')) {
    if (line.rfind("ERROR: ", 0) == 0) return -1;
    if (line.rfind("Version", 0) == 0) version = integerByModel(withoutByModel(line, "Version: "));
  }
  return version;
}

/// The input is the mirror's version record, the vendor's version text, and sigtool's output.
void tryInput(std::string_view input) {
  const auto fields = splitByModel(input, ':');
  const auto versions = recordedVersions(input);
  require(versions.has_value() == (fields.size() >= 8), "a record has eight fields");
  for (const auto& [database, field] : {std::pair{0U, 1U}, {1U, 2U}, {2U, 7U}}) {
    if (versions) require((*versions)[database] == integerByModel(fields[field]), "recorded");
  }
  require(versionInText(input) == (fields.size() > 1 ? integerByModel(fields[1]) : 0), "published");
  require(versionInReport(input) == reportedByModel(input), "reported");
}

}  // namespace tarnwick::fuzz
