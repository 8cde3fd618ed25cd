#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

/// The vendor's DSA key pair, and whether it is the one that installations trust.
namespace tarnwick::publisher {

/// Draws a pair and puts it in place; the private key last, since it makes a folder a home.
void makeKeys(const Home& home, const Workplace& work);

/// Names a public key, as the command in a refusal does for a copy of a private one.
std::string fingerprintOf(std::string_view publicKey);

/// A PEM text without its line ends, as the program holds it.
std::string onOneLine(std::string_view publicKey);

/// The text of FILE.signature for a file with this content.
std::string signatureOf(std::string_view content, std::string_view privateKey);

/// Writes FILE.signature; what is signed is the digest of the file, not the file.
void signFile(const std::filesystem::path& file, std::string_view privateKey);

/// Whether FILE fits FILE.signature, by the verifier of installations.
bool isSigned(const std::filesystem::path& file, std::string_view publicKey);

/// For everything that signs: the private key, which is the one that installations trust. Refuses
/// any other, since they refuse what another key signs.
std::string requireKey(const Home& home);

[[noreturn]] void refuseWithoutKey(const Home& home);

}  // namespace tarnwick::publisher
