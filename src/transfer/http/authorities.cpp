#include "transfer/http/authorities.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "base/file_tree.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

std::optional<std::string> environment(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread changes the environment
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0' ? std::optional<std::string>(value) : std::nullopt;
}

/// The certificates in a bundle; none when the bundle cannot be read.
std::optional<std::size_t> countCertificates(const std::string& bundle) {
  std::ifstream stream(bundle);
  if (!stream) return std::nullopt;
  std::size_t count = 0;
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with("-----BEGIN ")) ++count;
  }
  return stream.bad() ? std::nullopt : std::optional(count);
}

/// Whether OpenSSL looks a certificate up by such a name: eight hexadecimal digits, a dot and a
/// number.
bool isHashed(std::string_view name) {
  constexpr std::size_t digitsOfHash = 8;
  const auto consistsOf = [](std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
  };
  return name.size() > digitsOfHash && name[digitsOfHash] == '.' &&
         consistsOf(name.substr(0, digitsOfHash), "0123456789abcdef") &&
         consistsOf(name.substr(digitsOfHash + 1), "0123456789");
}

/// `rehash` leaves out a file that holds several certificates. An administrator may also have
/// edited the bundle alone.
bool hasEveryCertificateOf(const std::string& folder, const std::string& bundle) {
  std::error_code failedForFolder;
  std::error_code failedForBundle;
  const auto changed = fs::last_write_time(folder, failedForFolder);
  if (fs::last_write_time(bundle, failedForBundle) > changed) return false;
  const auto names = namesIn(folder);
  const auto wanted = countCertificates(bundle);
  if (failedForFolder || failedForBundle || !names || !wanted || *wanted == 0) return false;
  const auto leadsToACertificate = [&](const std::string& name) {
    return isHashed(name) && fileExists(fs::path(folder) / name);
  };
  return static_cast<std::size_t>(std::ranges::count_if(*names, leadsToACertificate)) >= *wanted;
}

}  // namespace

Authorities chooseAuthorities(const Authorities& system) {
  const auto curlBundle = environment("CURL_CA_BUNDLE");
  const auto bundle = curlBundle ? curlBundle : environment("SSL_CERT_FILE");
  const auto folder = environment("SSL_CERT_DIR");
  if (bundle || folder) {
    return {.bundle = bundle ? bundle : system.bundle, .folder = folder ? folder : system.folder};
  }
  if (!system.bundle || !system.folder) return system;
  if (hasEveryCertificateOf(*system.folder, *system.bundle)) return {.folder = system.folder};
  return {.bundle = system.bundle};
}

}  // namespace tarnwick
