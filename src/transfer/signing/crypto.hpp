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
[[nodiscard]] Bytes digestOf(DigestAlgorithm algorithm, std::string_view text);

/// Standard Base64 as OpenSSL's filter writes it, with a line feed at the end.
[[nodiscard]] std::string base64WithLineFeed(std::span<const unsigned char> bytes);

/// Whether `signature` (DER) is a valid DSA signature with SHA-1 over `message`. `key` is a DER
/// SubjectPublicKeyInfo. False if `key` is not a DSA key or `signature` is malformed.
[[nodiscard]] bool verifyDsaSha1(std::span<const unsigned char> key,
                                 std::span<const unsigned char> message,
                                 std::span<const unsigned char> signature);

/// A DSA signature (DER) with SHA-1 over `message`. `privateKey` is PEM. None if it is not a DSA
/// key or if a password protects it. Never asks for a password.
[[nodiscard]] std::optional<Bytes> signDsaSha1(std::string_view privateKey,
                                               std::span<const unsigned char> message);

/// The public half of `privateKey`, both PEM. None as for signDsaSha1.
[[nodiscard]] std::optional<std::string> publicHalfOf(std::string_view privateKey);

/// Both are PEM texts.
struct KeyPair {
  std::string privateKey;
  std::string publicKey;
};

/// A new DSA key pair: 2048 bits, with a subgroup of 160 bits. None if the library fails.
[[nodiscard]] std::optional<KeyPair> makeDsaKeyPair();

}  // namespace tarnwick::crypto
