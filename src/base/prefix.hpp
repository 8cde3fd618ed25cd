#pragma once

#include <string>
#include <string_view>

namespace tarnwick {

/// A path within the product's own folder, which no setting moves; the folder itself for "".
std::string inPrefix(std::string_view path);

/// The product's own database folder. Several phases use it even where the command line has moved
/// `dataDirectory` elsewhere; each says so.
std::string fixedDatabaseDirectory();

/// ClamAV's tool for containers. Not to be moved by the command line either.
std::string sigtoolPath();

/// Where this program keeps files of its own between runs. Closed to other users.
inline constexpr auto stateDirectory = "/var/lib/tarnwick";

}  // namespace tarnwick
