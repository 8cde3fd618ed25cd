#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "transfer/http_client.hpp"

namespace tarnwick {

/// What the vendor phase works with besides the run's settings.
struct VendorSession {
  HttpClient& http;
  std::filesystem::path temporaryDirectory;
  std::string userAgent;  ///< of every request in this phase
  std::string_view
      publicKey;  ///< PEM text of the key that every file of the vendor's is signed with
};

}  // namespace tarnwick
