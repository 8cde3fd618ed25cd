#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace tarnwick {

/// Decides whether a file or a text carries a valid signature of the vendor. Never prints: every
/// failure, an absent argument included, is the result false.
///
/// The signature text is the Base64 of a DER DSA signature; line feeds at its end do not count.
/// The key text is PEM: markers and a Base64 body, on one line or many.
class DVSUDSAVerifier {
 public:
  static bool validatePathWithEncodedDSASignatureWithPublicDSAKey(
      const std::optional<std::filesystem::path>& path,
      const std::optional<std::string_view>& encodedSignature,
      const std::optional<std::string_view>& publicKey);

  static bool validateStringWithEncodedDSASignatureWithPublicDSAKey(
      const std::optional<std::string_view>& text,
      const std::optional<std::string_view>& encodedSignature,
      const std::optional<std::string_view>& publicKey);
};

/// The DER bytes of a PEM public key; empty when there are none.
std::vector<unsigned char> derOfPublicKeyText(std::string_view keyText);

/// The verifier's own Base64 decoder, which differs from the usual ones in how it ends; see the
/// comments in its body.
std::vector<unsigned char> decodeSignatureBase64(std::string_view text);

}  // namespace tarnwick
