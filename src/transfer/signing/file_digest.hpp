#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "transfer/signing/crypto.hpp"

namespace tarnwick {

/// Hands over what is left of an open file in small pieces, so that memory does not grow with it.
/// False when reading failed on the way.
bool readInPieces(int descriptor, const std::function<void(std::span<const char>)>& take);

/// None when the file cannot be opened or read to its end.
std::optional<crypto::Bytes> digestOfFile(const std::filesystem::path& path,
                                          crypto::DigestAlgorithm algorithm);

/// Two lower-case digits for each byte.
std::string hexadecimal(std::span<const unsigned char> bytes);

}  // namespace tarnwick
