#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "transfer/http/http_client.hpp"

namespace tarnwick {

/// What the vendor phase works with besides the run's settings.
struct VendorSession {
  HttpClient& http;
  std::filesystem::path temporaryDirectory;
  std::string userAgent;       ///< of every request in this phase
  std::string_view publicKey;  ///< PEM, of the key that all files of the vendor's are signed with
};

}  // namespace tarnwick
