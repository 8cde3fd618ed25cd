#include "transfer/signing/file_digest.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <array>
#include <cstddef>

#include "base/file_descriptor.hpp"

namespace tarnwick {

bool readInPieces(int descriptor, const std::function<void(std::span<const char>)>& take) {
  std::array<char, 4096> buffer;  // NOLINT(*-member-init): filled by read
  for (;;) {
    const ssize_t count = readSome(descriptor, buffer);
    if (count <= 0) return count == 0;
    take({buffer.data(), static_cast<std::size_t>(count)});
  }
}

std::optional<crypto::Bytes> digestOfFile(const std::filesystem::path& path,
                                          crypto::DigestAlgorithm algorithm) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return std::nullopt;
  crypto::Digest digest(algorithm);
  const auto feed = [&digest](std::span<const char> piece) { digest.update(piece); };
  if (!readInPieces(file.get(), feed)) return std::nullopt;
  return digest.finish();
}

std::string hexadecimal(std::span<const unsigned char> bytes) {
  std::string text;
  for (const unsigned char byte : bytes) text += fmt::format("{:02x}", byte);
  return text;
}

}  // namespace tarnwick
