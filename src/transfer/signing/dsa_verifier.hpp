#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace tarnwick {

/// Whether the signature is a valid one for the file or text, made with the private half of the
/// key. False on every failure, such as a file that cannot be read.
///
/// `encodedSignature` is the Base64 text of a DER DSA signature; line feeds at its end are ignored.
/// `publicKey` is PEM: markers and a Base64 body, on one line or many.
[[nodiscard]] bool fileIsSigned(const std::filesystem::path& path,
                                std::string_view encodedSignature, std::string_view publicKey);
[[nodiscard]] bool textIsSigned(std::string_view text, std::string_view encodedSignature,
                                std::string_view publicKey);

/// The same operations under the class's published names, which other callers rely on. False also
/// for an absent argument. Never prints.
class DVSUDSAVerifier {
 public:
  [[nodiscard]] static bool validatePathWithEncodedDSASignatureWithPublicDSAKey(
      const std::optional<std::filesystem::path>& path,
      const std::optional<std::string_view>& encodedSignature,
      const std::optional<std::string_view>& publicKey);

  [[nodiscard]] static bool validateStringWithEncodedDSASignatureWithPublicDSAKey(
      const std::optional<std::string_view>& text,
      const std::optional<std::string_view>& encodedSignature,
      const std::optional<std::string_view>& publicKey);
};

/// The DER bytes of a PEM public key; empty if the text contains none.
[[nodiscard]] std::vector<unsigned char> derOfPublicKeyText(std::string_view keyText);

/// The verifier's own Base64 decoder. It treats the end of the text differently from other
/// decoders; the comments in its body say how.
[[nodiscard]] std::vector<unsigned char> decodeSignatureBase64(std::string_view text);

}  // namespace tarnwick
