#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "driver/run_context.hpp"

/// The header of a ClamAV database container: one line of nine fields separated by ":". A name that
/// does not exist in the working directory is looked up in the fixed database folder, wherever
/// `dataDirectory` is.
namespace tarnwick {

/// Why a file has no header line.
struct HeaderFailure {
  enum class Reason {
    notOpened,  ///< also for a link
    empty,      ///< also for a file that is not regular, and for a failed read
    notText,    ///< not valid UTF-8
  };
  Reason reason;
  std::string path;  ///< the path that was tried
};

/// The first line of a file's first 512 bytes, without its padding. Prints nothing.
[[nodiscard]] std::variant<std::string, HeaderFailure> headerLineOfFile(const std::string& name);

/// The nine fields of a header line. None if the line does not split into exactly nine.
[[nodiscard]] std::optional<std::vector<std::string>> headerFieldsOfString(std::string_view header);

/// Field 2. 0 without a header line of nine fields.
[[nodiscard]] std::int64_t databaseVersionOfHeader(const std::optional<std::string>& header);

/// Field 8, in seconds since 1970 UTC. None without a header line of nine fields.
[[nodiscard]] std::optional<double> databaseBuildDateOfHeader(
    const std::optional<std::string>& header);

/// As headerLineOfFile. Reports a failure on the console, except for a file that is not text.
[[nodiscard]] std::optional<std::string> readDatabaseHeader(const RunContext& context,
                                                            const std::string& name);

}  // namespace tarnwick
