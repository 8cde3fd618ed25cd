#include "transfer/file_hash.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <array>
#include <span>

#include "base/file_descriptor.hpp"
#include "transfer/crypto.hpp"

namespace tarnwick {
namespace {

using crypto::DigestAlgorithm;

std::string hexadecimal(std::span<const unsigned char> digest) {
  std::string text;
  for (const unsigned char byte : digest) text += fmt::format("{:02x}", byte);
  return text;
}

/// Feeds the whole file to the context's algorithm. False when reading failed on the way.
bool digestStream(int descriptor, const _FileHashComputationContext& context) {
  std::array<char, 4096> buffer;  // NOLINT(*-member-init): filled by read
  for (;;) {
    const ssize_t count = readSome(descriptor, buffer);
    if (count == 0) return true;
    if (count < 0) return false;
    context.updateFunction(context.hashObjectPointer, buffer.data(),
                           static_cast<std::uint32_t>(count));
  }
}

std::optional<crypto::Bytes> digestOfFile(const std::filesystem::path& path,
                                          const _FileHashComputationContext& context) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return std::nullopt;
  context.initFunction(context.hashObjectPointer);
  const bool complete = digestStream(file.get(), context);
  crypto::Bytes digest(context.digestLength);
  context.finalFunction(digest.data(), context.hashObjectPointer);
  if (!complete) return std::nullopt;
  return digest;
}

crypto::DigestState& stateOf(void* state) {
  return *static_cast<crypto::DigestState*>(state);
}

_FileHashComputationContext contextFor(crypto::DigestState& state, std::uint64_t digestLength) {
  return {
      .initFunction = [](void* digest) { stateOf(digest).reset(); },
      .updateFunction = [](void* digest, const void* bytes,
                           std::uint32_t length) { stateOf(digest).update(bytes, length); },
      .finalFunction = [](unsigned char* output, void* digest) { stateOf(digest).finish(output); },
      .digestLength = digestLength,
      .hashObjectPointer = &state,
  };
}

std::optional<std::string> hashOfFile(const std::filesystem::path& path, DigestAlgorithm algorithm,
                                      std::uint64_t digestLength) {
  crypto::DigestState state(algorithm);
  const auto context = contextFor(state, digestLength);
  const auto hash = FileHash::hashOfFileAtPathWithComputationContext(path, &context);
  return state.hasFailed() ? std::nullopt : hash;
}

}  // namespace

std::optional<std::string> FileHash::hashOfFileAtPathWithComputationContext(
    const std::filesystem::path& path, const _FileHashComputationContext* context) {
  const std::optional<crypto::Bytes> digest = digestOfFile(path, *context);
  if (!digest) return std::nullopt;
  return hexadecimal(*digest);
}

std::optional<std::string> FileHash::md5HashOfFileAtPath(const std::filesystem::path& path) {
  return hashOfFile(path, DigestAlgorithm::md5, 16);
}

std::optional<std::string> FileHash::sha1HashOfFileAtPath(const std::filesystem::path& path) {
  return hashOfFile(path, DigestAlgorithm::sha1, 20);
}

std::optional<std::string> FileHash::sha512HashOfFileAtPath(const std::filesystem::path& path) {
  return hashOfFile(path, DigestAlgorithm::sha512, 64);
}

std::string FileHash::md5HashOfStringRawDigest(std::string_view text, bool rawDigest) {
  const crypto::Bytes digest = crypto::digestOf(DigestAlgorithm::md5, text);
  return rawDigest ? std::string(digest.begin(), digest.end()) : hexadecimal(digest);
}

std::string FileHash::md5HashAsBase64OfString(std::string_view text) {
  return crypto::base64WithLineFeed(crypto::digestOf(DigestAlgorithm::md5, text));
}

std::optional<std::vector<unsigned char>> FileHash::sha1DigestOfFileAtPath(
    const std::filesystem::path& path) {
  crypto::DigestState state(DigestAlgorithm::sha1);
  const auto digest = digestOfFile(path, contextFor(state, 20));
  return state.hasFailed() ? std::nullopt : digest;
}

std::string FileHash::sha1OfString(std::string_view text) {
  return hexadecimal(crypto::digestOf(DigestAlgorithm::sha1, text));
}

}  // namespace tarnwick
