#pragma once

#include <string>
#include <string_view>

/// The paths that no setting moves.
namespace tarnwick {

/// A path below the prefix, the folder in which ClamAV is installed; the prefix itself for "".
[[nodiscard]] std::string inPrefix(std::string_view path);

/// The database folder below the prefix. Several phases use it even if the command line has moved
/// `dataDirectory` elsewhere; each of these places says why.
[[nodiscard]] std::string fixedDatabaseDirectory();

/// ClamAV's program that inspects and unpacks containers. The command line cannot move it.
[[nodiscard]] std::string sigtoolPath();

/// The folder in which Tarnwick keeps its own files between runs. Other users cannot open it.
inline constexpr auto stateDirectory = "/var/lib/tarnwick";

}  // namespace tarnwick
