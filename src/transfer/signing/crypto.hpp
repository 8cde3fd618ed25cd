#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The cryptographic library, as far as this program needs it.
namespace tarnwick::crypto {

using Bytes = std::vector<unsigned char>;

enum class DigestAlgorithm { md5, sha1, sha512 };

/// The digest of what comes in pieces.
class Digest {
 public:
  explicit Digest(DigestAlgorithm algorithm);
  ~Digest();
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;

  void update(std::span<const char> piece);
  /// Once, at the end. None when the library refused any of this.
  std::optional<Bytes> finish();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// The digest of a text in one call.
Bytes digestOf(DigestAlgorithm algorithm, std::string_view text);

/// Standard Base64 as OpenSSL's filter writes it, with its line feed at the end.
std::string base64WithLineFeed(std::span<const unsigned char> bytes);

/// Whether `signature` (DER) is a DSA signature with SHA-1 over `message` under `key`, a DER
/// SubjectPublicKeyInfo. False for anything that is no DSA key or no signature.
bool verifyDsaSha1(std::span<const unsigned char> key, std::span<const unsigned char> message,
                   std::span<const unsigned char> signature);

}  // namespace tarnwick::crypto
