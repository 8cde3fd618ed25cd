#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwick {

/// The caller's own algorithm for hashOfFileAtPathWithComputationContext, and its state. Must live
/// until that call returns.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl*): callers rely on the name
struct _FileHashComputationContext {
  void (*initFunction)(void* state);
  void (*updateFunction)(void* state, const void* bytes, std::uint32_t length);
  void (*finalFunction)(unsigned char* output, void* state);
  std::uint64_t digestLength;  ///< in bytes
  void* hashObjectPointer;     ///< the algorithm's state, owned by the caller
};

/// Hashes of files and short texts: their digests as text. None if a file cannot be opened or read
/// to its end.
///
/// Other callers rely on the whole class; this program only calls md5HashOfFileAtPath and
/// md5HashAsBase64OfString.
class FileHash {
 public:
  [[nodiscard]] static std::optional<std::string> hashOfFileAtPathWithComputationContext(
      const std::filesystem::path& path, const _FileHashComputationContext* context);

  [[nodiscard]] static std::optional<std::string> md5HashOfFileAtPath(
      const std::filesystem::path& path);
  [[nodiscard]] static std::optional<std::string> sha1HashOfFileAtPath(
      const std::filesystem::path& path);
  [[nodiscard]] static std::optional<std::string> sha512HashOfFileAtPath(
      const std::filesystem::path& path);

  /// 32 lower-case hexadecimal digits; with `rawDigest`, the 16 bytes of the digest.
  [[nodiscard]] static std::string md5HashOfStringRawDigest(std::string_view text, bool rawDigest);

  /// 25 characters: the Base64 text of the MD5 digest and a line feed.
  [[nodiscard]] static std::string md5HashAsBase64OfString(std::string_view text);

  [[nodiscard]] static std::string sha1OfString(std::string_view text);
};

}  // namespace tarnwick
