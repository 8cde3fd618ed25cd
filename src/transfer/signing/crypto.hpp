#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The operations of libcrypto that this program needs.
namespace tarnwick::crypto {

using Bytes = std::vector<unsigned char>;

enum class DigestAlgorithm { md5, sha1, sha256, sha512 };

/// Computes the digest of data that comes in pieces.
class Digest {
 public:
  explicit Digest(DigestAlgorithm algorithm);
  ~Digest();
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;

  void update(std::span<const char> piece);
  /// Call once, after the last piece. None if any call of the library has failed.
  [[nodiscard]] std::optional<Bytes> finish();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// The digest of a text in one call.
Bytes digestOf(DigestAlgorithm algorithm, std::string_view text);

/// Standard Base64 as OpenSSL's filter writes it, with a line feed at the end.
std::string base64WithLineFeed(std::span<const unsigned char> bytes);

/// Whether `signature` (DER) is a valid DSA signature with SHA-1 over `message`. `key` is a DER
/// SubjectPublicKeyInfo. False if `key` is not a DSA key or `signature` is malformed.
[[nodiscard]] bool verifyDsaSha1(std::span<const unsigned char> key,
                                 std::span<const unsigned char> message,
                                 std::span<const unsigned char> signature);

/// A DSA signature (DER) with SHA-1 over `message` under a private key in PEM. None for anything
/// that is no such key. Never asks for a password.
std::optional<Bytes> signDsaSha1(std::string_view privateKey,
                                 std::span<const unsigned char> message);

/// The PEM text of the public half of a private key in PEM. None for anything that is no such key.
std::optional<std::string> publicHalfOf(std::string_view privateKey);

/// PEM texts.
struct KeyPair {
  std::string privateKey;
  std::string publicKey;
};

/// A new DSA pair of 2048 bits with a group of 160. None when the library refused.
std::optional<KeyPair> makeDsaKeyPair();

}  // namespace tarnwick::crypto
