#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text_rules.hpp"
#include "vendor/database_header.hpp"
#include "vendor/item_updater.hpp"

/// Operations under the names and with the arguments that the description of this program's
/// interfaces uses. Each only calls the functions that do the work; a run uses those.
namespace tarnwick {

[[nodiscard]] inline std::optional<std::vector<std::string>> headerFieldsOfFile(
    const RunContext& context, const std::string& name) {
  const std::optional<std::string> header = readDatabaseHeader(context, name);
  return header ? headerFieldsOfString(*header) : std::nullopt;
}

[[nodiscard]] inline std::int64_t databaseVersionOfFile(const RunContext& context,
                                                        const std::string& name) {
  return databaseVersionOfHeader(readDatabaseHeader(context, name));
}

[[nodiscard]] inline std::optional<double> databaseBuildDateOfFile(const RunContext& context,
                                                                   const std::string& name) {
  return databaseBuildDateOfHeader(readDatabaseHeader(context, name));
}

/// `item` is the text after "Vestrum." and may end in ".zip".
inline void updateVendorFile(RunContext& context, const VendorSession& session,
                             std::string_view item,
                             const std::optional<std::string>& storedLastModified,
                             UpdateState& state) {
  const std::string name = replaced(item, ".zip", "");
  // ClamAV knows no kind of file whose name ends in "database".
  const VendorItem row{.name = name,
                       .zipped = item.ends_with(".zip"),
                       .scannerDecides = !name.ends_with("database")};
  updateVendorFile(context, session, row, storedLastModified, state);
}

}  // namespace tarnwick
