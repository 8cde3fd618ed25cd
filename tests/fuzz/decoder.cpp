#include "fuzz.hpp"
#include "transfer/dsa_verifier.hpp"

void tarnwick::fuzz::tryInput(std::string_view input) {
  require(decodeSignatureBase64(input) == decodedByModel(input), "a signature is decoded");
  require(derOfPublicKeyText(input) == keyByModel(input), "a key is decoded");
}
