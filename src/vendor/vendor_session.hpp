#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.hpp"
#include "transfer/http/http_client.hpp"

namespace tarnwick {

/// What the vendor phase works with besides the run's settings.
struct VendorSession {
  HttpClient& http;  ///< must outlive the session
  platform::TemporaryDirectory temporaryDirectory;
  std::string userAgent;       ///< for every request of this phase
  std::string_view publicKey;  ///< PEM; verifies all the vendor's files; must outlive the session

  /// The path for a temporary file with this name; none without a folder for temporary files.
  [[nodiscard]] std::optional<std::filesystem::path> temporaryFile(std::string_view name) const {
    if (!temporaryDirectory.path) return std::nullopt;
    return *temporaryDirectory.path / name;
  }
};

}  // namespace tarnwick
