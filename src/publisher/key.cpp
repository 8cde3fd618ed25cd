#include "publisher/key.hpp"

#include <fmt/format.h>

#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"
#include "transfer/signing/crypto.hpp"
#include "transfer/signing/dsa_verifier.hpp"
#include "transfer/signing/file_digest.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

// The program holds its key as one line of exactly this many characters.
constexpr std::size_t oneLineKeyLength = 1158;
constexpr std::uintmax_t largestKey = 64U << 10U;

/// A number whose top bit is set takes one byte more in a key. About one pair in four comes out
/// longer than the line may be, and is drawn again.
crypto::KeyPair drawPair() {
  for (;;) {
    std::optional<crypto::KeyPair> pair = crypto::makeDsaKeyPair();
    if (!pair) refuse("openssl made no key");
    if (onOneLine(pair->publicKey).size() == oneLineKeyLength) return std::move(*pair);
  }
}

/// Whether public.pem verifies anything that is published. One damaged signature is no sign of
/// another key, and the next release replaces it.
bool fitsWhatIsPublished(const Home& home, std::string_view publicKey) {
  std::vector<fs::path> files{home.scripted / "VestRUM.cud", home.tree / "Vestrum.database"};
  for (const fs::path& entry : entriesOf(home.scripted)) {
    if (entry.extension() == ".script") files.push_back(entry);
  }
  bool anythingSigned = false;
  for (const fs::path& file : files) {
    if (!isFile(file) || !isFile(file.string() + ".signature")) continue;
    if (isSigned(file, publicKey)) return true;
    anythingSigned = true;
  }
  return !anythingSigned;
}

std::string signatureText(const crypto::Bytes& digest, std::string_view privateKey) {
  const std::optional<crypto::Bytes> signature = crypto::signDsaSha1(privateKey, digest);
  if (!signature) refuse("private.pem cannot sign");
  return replaced(crypto::base64WithLineFeed(*signature), "\n", "");
}

}  // namespace

void makeKeys(const Home& home, const Workplace& work) {
  const crypto::KeyPair pair = drawPair();
  const fs::path& folder = work.folder();
  writeSynced(folder / "private.pem", pair.privateKey, 0600);
  writeSynced(folder / "public.pem", pair.publicKey);
  writeSynced(folder / "one-line", onOneLine(pair.publicKey));
  moveOver(folder / "one-line", home.oneLineKey);
  moveOver(folder / "public.pem", home.publicKey);
  moveOver(folder / "private.pem", home.privateKey);
  syncPath(home.folder);
}

std::string fingerprintOf(std::string_view publicKey) {
  const std::vector<unsigned char> der = derOfPublicKeyText(publicKey);
  return hexadecimal(
      crypto::digestOf(crypto::DigestAlgorithm::sha256, std::string(der.begin(), der.end())));
}

std::string onOneLine(std::string_view publicKey) {
  return replaced(publicKey, "\n", "");
}

std::string signatureOf(std::string_view content, std::string_view privateKey) {
  return signatureText(crypto::digestOf(crypto::DigestAlgorithm::sha1, content), privateKey);
}

void signFile(const fs::path& file, std::string_view privateKey) {
  const auto digest = digestOfFile(file, crypto::DigestAlgorithm::sha1);
  if (!digest) refuse(fmt::format("{} cannot be read", file.string()));
  writeSynced(file.string() + ".signature", signatureText(*digest, privateKey));
}

bool isSigned(const fs::path& file, std::string_view publicKey) {
  const auto signature = contentOf(file.string() + ".signature", largestKey);
  return signature && fileIsSigned(file, *signature, publicKey);
}

std::string requireKey(const Home& home) {
  if (!isFile(home.privateKey)) refuseWithoutKey(home);
  std::string privateKey = contentOf(home.privateKey, largestKey).value_or("");
  const std::optional<std::string> half = crypto::publicHalfOf(privateKey);
  if (!half) refuse("private.pem cannot be read as a private key; put it back from its copy");
  const auto publicKey = contentOf(home.publicKey, largestKey);
  if (!publicKey) {
    refuse("public.pem is missing", fmt::format("make it anew: openssl pkey -in {} -pubout -out {}",
                                                home.privateKey.string(), home.publicKey.string()));
  }
  if (*half != *publicKey) {
    refuse(fmt::format("private.pem has the fingerprint {},", fingerprintOf(*half)),
           fmt::format("and public.pem has {}", fingerprintOf(*publicKey)),
           "put back the pair that Tarnwick was built with");
  }
  if (!fitsWhatIsPublished(home, *publicKey)) {
    refuse("what is published here was not signed with private.pem,",
           fmt::format("whose fingerprint is {}", fingerprintOf(*publicKey)),
           "put back the pair that Tarnwick was built with: installations trust no other");
  }
  return privateKey;
}

void refuseWithoutKey(const Home& home) {
  const auto publicKey = contentOf(home.publicKey, largestKey);
  const std::string lost =
      publicKey ? fmt::format("the one with the fingerprint {}", fingerprintOf(*publicKey))
                : "and public.pem, which would tell which, is lost too";
  refuse(fmt::format("the private key of what is published in {} is lost, {}", home.folder.string(),
                     lost),
         "put private.pem back from its copy; this shows a copy's fingerprint:",
         "  openssl pkey -in COPY -pubout -outform DER | sha256sum",
         "a new key will not do: every installation would refuse what it signs");
}

}  // namespace tarnwick::publisher
