#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include "fuzz.hpp"
#include "transfer/dsa_verifier.hpp"

namespace tarnwick::fuzz {

/// What OpenSSL says of a digest made and a signature decoded without the program's help.
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

/// A signature, a key, and what is signed.
void tryInput(std::string_view input) {
  using Verifier = DVSUDSAVerifier;
  const auto texts = textsIn(input, 3);
  const bool valid = validByOpenSsl(texts[2], texts[0], texts[1]);
  require(Verifier::validateStringWithEncodedDSASignatureWithPublicDSAKey(texts[2], texts[0],
                                                                          texts[1]) == valid,
          "a text is valid where OpenSSL says so");
  require(Verifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
              fileWith(texts[2]), texts[0], texts[1]) == valid,
          "and so is a file");
}

}  // namespace tarnwick::fuzz
