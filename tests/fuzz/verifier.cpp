#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <bitset>

#include "fuzz.hpp"
#include "transfer/signing/dsa_verifier.hpp"

namespace tarnwick::fuzz {

using Bytes = std::vector<unsigned char>;

static Bytes decodedByModel(std::string_view base64) {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bits;
  for (const char c : base64) {
    const std::size_t value = alphabet.find(c);
    if (value != std::string_view::npos) bits += std::bitset<6>(value).to_string();
  }
  if (bits.empty()) return Bytes((base64.size() + 3) / 4 * 3);  // zeros for every group of four
  Bytes bytes;
  for (std::size_t i = 0; i + 8 <= bits.size(); i += 8) {
    bytes.push_back(static_cast<unsigned char>(std::bitset<8>(bits, i, 8).to_ulong()));
  }
  // Other characters after the last full group lose a byte.
  if (bits.size() % 24 == 0 && alphabet.find(base64.back()) == alphabet.npos) bytes.pop_back();
  return bytes;
}

static std::string withoutAround(std::string_view characters, std::string_view text) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == text.npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(characters) - first + 1));
}

static Bytes keyByModel(std::string_view pem) {
  std::string body = withoutByModel(withoutByModel(pem, "-"), "BEGIN PUBLIC KEY");
  body = withoutAround("\n", withoutByModel(body, "END PUBLIC KEY"));
  std::string joined;
  for (const std::string& line : splitByModel(body, '\n')) {
    joined += withoutAround(" \t", line) + '\n';
  }
  return decodedByModel(joined.substr(0, joined.size() - 1));
}

/// OpenSSL's result for a digest and a signature that the program did not make or decode.
static bool validByOpenSsl(std::string_view text, std::string signatureText,
                           std::string_view keyText) {
  while (signatureText.ends_with('\n')) signatureText.pop_back();
  const Bytes signature = decodedByModel(signatureText);
  const Bytes der = keyByModel(keyText);
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
  SHA1(digest, sizeof digest, digest);
  const unsigned char* position = der.data();
  EVP_PKEY* const key = d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size()));
  EVP_PKEY_CTX* const context = key != nullptr ? EVP_PKEY_CTX_new(key, nullptr) : nullptr;
  const bool valid =
      context != nullptr && EVP_PKEY_is_a(key, "DSA") && EVP_PKEY_verify_init(context) == 1 &&
      EVP_PKEY_verify(context, signature.data(), signature.size(), digest, sizeof digest) == 1;
  EVP_PKEY_CTX_free(context);
  EVP_PKEY_free(key);
  return valid;
}

/// The input is a signature, a key, and the signed text.
void tryInput(std::string_view input) {
  using Verifier = DVSUDSAVerifier;
  const auto texts = textsIn(input, 3);
  for (const std::string& text : texts) {
    require(decodeSignatureBase64(text) == decodedByModel(text), "a signature is decoded");
    require(derOfPublicKeyText(text) == keyByModel(text), "a key is decoded");
  }
  const bool valid = validByOpenSsl(texts[2], texts[0], texts[1]);
  require(Verifier::validateStringWithEncodedDSASignatureWithPublicDSAKey(texts[2], texts[0],
                                                                          texts[1]) == valid,
          "OpenSSL agrees about a text");
  require(Verifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
              fileWith(texts[2]), texts[0], texts[1]) == valid,
          "OpenSSL agrees about a file");
  require(
      !Verifier::validateStringWithEncodedDSASignatureWithPublicDSAKey({}, texts[0], texts[1]) &&
          !Verifier::validatePathWithEncodedDSASignatureWithPublicDSAKey({}, texts[0], texts[1]),
      "no text is never valid, unlike an empty text");
}

}  // namespace tarnwick::fuzz
