#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "transfer/signing/crypto.hpp"

namespace tarnwick {

/// Reads an open file from its position to its end and passes it to `take` in small pieces. False
/// if a read fails; `take` has then had the pieces before.
[[nodiscard]] bool readInPieces(int descriptor,
                                const std::function<void(std::span<const char>)>& take);

/// None if the file cannot be opened or read to its end.
[[nodiscard]] std::optional<crypto::Bytes> digestOfFile(const std::filesystem::path& path,
                                                        crypto::DigestAlgorithm algorithm);

/// Two lower-case digits for each byte.
[[nodiscard]] std::string hexadecimal(std::span<const unsigned char> bytes);

}  // namespace tarnwick
