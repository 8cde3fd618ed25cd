#include "transfer/signing/file_hash.hpp"

#include <fcntl.h>

#include "base/file_descriptor.hpp"
#include "transfer/signing/crypto.hpp"
#include "transfer/signing/file_digest.hpp"

namespace tarnwick {
namespace {

using crypto::DigestAlgorithm;

std::optional<std::string> hashOfFile(const std::filesystem::path& path,
                                      DigestAlgorithm algorithm) {
  const std::optional<crypto::Bytes> digest = digestOfFile(path, algorithm);
  if (!digest) return std::nullopt;
  return hexadecimal(*digest);
}

}  // namespace

std::optional<std::string> FileHash::hashOfFileAtPathWithComputationContext(
    const std::filesystem::path& path, const _FileHashComputationContext* context) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return std::nullopt;
  context->initFunction(context->hashObjectPointer);
  const bool complete = readInPieces(file.get(), [context](std::span<const char> piece) {
    context->updateFunction(context->hashObjectPointer, piece.data(),
                            static_cast<std::uint32_t>(piece.size()));
  });
  crypto::Bytes digest(context->digestLength);
  context->finalFunction(digest.data(), context->hashObjectPointer);
  if (!complete) return std::nullopt;
  return hexadecimal(digest);
}

std::optional<std::string> FileHash::md5HashOfFileAtPath(const std::filesystem::path& path) {
  return hashOfFile(path, DigestAlgorithm::md5);
}

std::optional<std::string> FileHash::sha1HashOfFileAtPath(const std::filesystem::path& path) {
  return hashOfFile(path, DigestAlgorithm::sha1);
}

std::optional<std::string> FileHash::sha512HashOfFileAtPath(const std::filesystem::path& path) {
  return hashOfFile(path, DigestAlgorithm::sha512);
}

std::string FileHash::md5HashOfStringRawDigest(std::string_view text, bool rawDigest) {
  const crypto::Bytes digest = crypto::digestOf(DigestAlgorithm::md5, text);
  return rawDigest ? std::string(digest.begin(), digest.end()) : hexadecimal(digest);
}

std::string FileHash::md5HashAsBase64OfString(std::string_view text) {
  return crypto::base64WithLineFeed(crypto::digestOf(DigestAlgorithm::md5, text));
}

std::string FileHash::sha1OfString(std::string_view text) {
  return hexadecimal(crypto::digestOf(DigestAlgorithm::sha1, text));
}

}  // namespace tarnwick
