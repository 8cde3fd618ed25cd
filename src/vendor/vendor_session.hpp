#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "transfer/http/http_client.hpp"

namespace tarnwick {

/// What the vendor phase works with besides the run's settings.
struct VendorSession {
  HttpClient& http;  ///< must outlive the session
  std::filesystem::path temporaryDirectory;
  std::string userAgent;       ///< for every request of this phase
  std::string_view publicKey;  ///< PEM; verifies all the vendor's files; must outlive the session
};

}  // namespace tarnwick
