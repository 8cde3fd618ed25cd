#include "transfer/signing/dsa_verifier.hpp"

#include <array>
#include <cstddef>
#include <string>

#include "base/text_rules.hpp"
#include "transfer/signing/crypto.hpp"
#include "transfer/signing/file_digest.hpp"

namespace tarnwick {
namespace {

constexpr unsigned char skipped = 0xFF;

constexpr std::array<unsigned char, 256> decodingTable = [] {
  std::array<unsigned char, 256> table{};
  table.fill(skipped);
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t value = 0; value < alphabet.size(); ++value) {
    table[static_cast<unsigned char>(alphabet[value])] = static_cast<unsigned char>(value);
  }
  return table;
}();

/// Up to four values, in order.
struct Group {
  std::array<unsigned char, 4> values{};
  std::size_t size = 0;
};

/// Takes values off the front of `text` until four are found or the text has ended.
Group takeGroup(std::string_view& text) {
  Group group;
  while (!text.empty() && group.size < group.values.size()) {
    const unsigned char value = decodingTable[static_cast<unsigned char>(text.front())];
    text.remove_prefix(1);
    if (value != skipped) group.values[group.size++] = value;
  }
  return group;
}

std::string_view withoutLineFeedsAtEnd(std::string_view text) {
  // Only line feeds: a carriage return stays and makes the decoder drop its last byte.
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

/// The vendor signs the 20 bytes of the content's SHA-1 digest; DSA with SHA-1 digests them again.
bool digestIsSigned(const crypto::Bytes& digest, std::string_view encodedSignature,
                    std::string_view publicKey) {
  const std::vector<unsigned char> key = derOfPublicKeyText(publicKey);
  const std::vector<unsigned char> signature =
      decodeSignatureBase64(withoutLineFeedsAtEnd(encodedSignature));
  return !key.empty() && !signature.empty() && crypto::verifyDsaSha1(key, digest, signature);
}

}  // namespace

std::vector<unsigned char> decodeSignatureBase64(std::string_view text) {
  std::vector<unsigned char> output((text.size() + 3) / 4 * 3);
  std::size_t end = 0;
  while (!text.empty()) {
    const auto [values, size] = takeGroup(text);
    const auto put = [&output, end](std::size_t index, int bits) {
      output[end + index] = static_cast<unsigned char>(bits);
    };
    if (size >= 2) put(0, values[0] << 2 | values[1] >> 4);
    if (size >= 3) put(1, values[1] << 4 | values[2] >> 2);
    if (size >= 4) put(2, values[2] << 6 | values[3]);
    // Vendors' signatures rely on this end: a group without a value drops the last byte, so junk
    // after a signature invalidates it. If nothing was decoded, `end` wraps round and the zeros
    // stay.
    end += size - 1;
  }
  if (end < output.size()) output.resize(end);
  return output;
}

std::vector<unsigned char> derOfPublicKeyText(std::string_view keyText) {
  // Remove the dashes first; the markers are then plain words.
  std::string body = replaced(keyText, "-", "");
  body = replaced(body, "BEGIN PUBLIC KEY", "");
  body = replaced(body, "END PUBLIC KEY", "");
  std::string_view kept = withoutLineFeedsAtEnd(body);
  while (kept.starts_with('\n')) kept.remove_prefix(1);
  std::string joined;
  for (const std::string_view line : split(kept, '\n')) {
    joined += stripped(line, " \t");
    joined += '\n';
  }
  joined.pop_back();  // no line feed after the last line
  return decodeSignatureBase64(joined);
}

bool fileIsSigned(const std::filesystem::path& path, std::string_view encodedSignature,
                  std::string_view publicKey) {
  const auto digest = digestOfFile(path, crypto::DigestAlgorithm::sha1);
  return digest && digestIsSigned(*digest, encodedSignature, publicKey);
}

bool textIsSigned(std::string_view text, std::string_view encodedSignature,
                  std::string_view publicKey) {
  return digestIsSigned(crypto::digestOf(crypto::DigestAlgorithm::sha1, text), encodedSignature,
                        publicKey);
}

bool DVSUDSAVerifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
    const std::optional<std::filesystem::path>& path,
    const std::optional<std::string_view>& encodedSignature,
    const std::optional<std::string_view>& publicKey) {
  return path && encodedSignature && publicKey &&
         fileIsSigned(*path, *encodedSignature, *publicKey);
}

bool DVSUDSAVerifier::validateStringWithEncodedDSASignatureWithPublicDSAKey(
    const std::optional<std::string_view>& text,
    const std::optional<std::string_view>& encodedSignature,
    const std::optional<std::string_view>& publicKey) {
  return text && encodedSignature && publicKey &&
         textIsSigned(*text, *encodedSignature, *publicKey);
}

}  // namespace tarnwick
