#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace tarnwick {

/// Whether the file or text carries a valid signature of whoever holds the private half of the key.
/// Every failure is the result false.
///
/// The signature text is the Base64 of a DER DSA signature; line feeds at its end do not count.
/// The key text is PEM: markers and a Base64 body, on one line or many.
bool fileIsSigned(const std::filesystem::path& path, std::string_view encodedSignature,
                  std::string_view publicKey);
bool textIsSigned(std::string_view text, std::string_view encodedSignature,
                  std::string_view publicKey);

/// The same as an interface that is kept whole, though this program has no text to verify. An
/// absent argument, too, is the result false. Never prints.
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
