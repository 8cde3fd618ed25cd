#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/run_context.hpp"

/// The first line of a ClamAV database container: nine fields separated by ":". A bare file name
/// that does not exist in the working directory is looked for in the product's own database
/// folder, wherever `dataDirectory` points.
namespace tarnwick {

/// The header line without its padding. None, with a line on the console, when the file cannot be
/// opened, is a link, is no regular file or holds nothing; none, silently, when it is no UTF-8
/// text.
std::optional<std::string> readDatabaseHeader(const RunContext& context, const std::string& name);

/// The nine fields of a header line; none when it does not split into exactly nine.
std::optional<std::vector<std::string>> headerFieldsOfString(std::string_view header);
std::optional<std::vector<std::string>> headerFieldsOfFile(const RunContext& context,
                                                           const std::string& name);

/// Field 2; 0 when there is no valid header.
std::int64_t databaseVersionOfFile(const RunContext& context, const std::string& name);
std::int64_t databaseVersionOfHeader(const std::optional<std::string>& header);

/// Field 8, in seconds since 1970 UTC; none when there is no valid header.
std::optional<double> databaseBuildDateOfFile(const RunContext& context, const std::string& name);

}  // namespace tarnwick
