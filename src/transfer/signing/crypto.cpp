#include "transfer/signing/crypto.hpp"

#include <openssl/bio.h>
#include <openssl/dsa.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <limits>

namespace tarnwick::crypto {
namespace {

struct Free {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
  void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, Free>;
using Key = std::unique_ptr<EVP_PKEY, Free>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Free>;
using BioChain = std::unique_ptr<BIO, Free>;

const EVP_MD* implementationOf(DigestAlgorithm algorithm) {
  switch (algorithm) {
    case DigestAlgorithm::md5:
      return EVP_md5();
    case DigestAlgorithm::sha1:
      return EVP_sha1();
    case DigestAlgorithm::sha256:
      return EVP_sha256();
    case DigestAlgorithm::sha512:
      return EVP_sha512();
  }
  return nullptr;
}

std::string textIn(BIO* memory) {
  const char* text = nullptr;
  const long length = BIO_get_mem_data(memory, &text);  // NOLINT(*-cstyle-cast): its macro
  return {text, static_cast<std::size_t>(length)};
}

int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
  return -1;
}

/// Null if the text is not a DSA key or if a password protects it.
Key privateKeyOf(std::string_view text) {
  const BioChain memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  Key key(PEM_read_bio_PrivateKey(memory.get(), nullptr, noPassword, nullptr));
  if (key && EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_DSA) key.reset();
  return key;
}

std::optional<std::string> publicTextOf(EVP_PKEY* key) {
  const BioChain memory(BIO_new(BIO_s_mem()));
  if (PEM_write_bio_PUBKEY(memory.get(), key) != 1) return std::nullopt;
  return textIn(memory.get());
}

std::optional<std::string> privateTextOf(EVP_PKEY* key) {
  const BioChain memory(BIO_new(BIO_s_mem()));
  if (PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
    return std::nullopt;
  }
  return textIn(memory.get());
}

Key makeDsaParameters() {
  constexpr int bits = 2048;
  constexpr int groupBits = 160;
  const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_DSA, nullptr));
  EVP_PKEY* made = nullptr;
  const bool done = EVP_PKEY_paramgen_init(context.get()) == 1 &&
                    EVP_PKEY_CTX_set_dsa_paramgen_bits(context.get(), bits) == 1 &&
                    EVP_PKEY_CTX_set_dsa_paramgen_q_bits(context.get(), groupBits) == 1 &&
                    EVP_PKEY_paramgen(context.get(), &made) == 1;
  return done ? Key(made) : nullptr;
}

}  // namespace

struct Digest::Implementation {
  DigestContext context{EVP_MD_CTX_new()};
  bool failed = false;

  void note(int result) { failed = failed || result != 1; }
};

Digest::Digest(DigestAlgorithm algorithm) : implementation_(std::make_unique<Implementation>()) {
  implementation_->note(
      EVP_DigestInit_ex(implementation_->context.get(), implementationOf(algorithm), nullptr));
}

Digest::~Digest() = default;

void Digest::update(std::span<const char> piece) {
  implementation_->note(
      EVP_DigestUpdate(implementation_->context.get(), piece.data(), piece.size()));
}

std::optional<Bytes> Digest::finish() {
  if (implementation_->failed) return std::nullopt;
  EVP_MD_CTX* const context = implementation_->context.get();
  Bytes digest(static_cast<std::size_t>(EVP_MD_CTX_get_size(context)));
  if (EVP_DigestFinal_ex(context, digest.data(), nullptr) != 1) return std::nullopt;
  return digest;
}

Bytes digestOf(DigestAlgorithm algorithm, std::string_view text) {
  const EVP_MD* const implementation = implementationOf(algorithm);
  Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(implementation)));
  EVP_Digest(text.data(), text.size(), digest.data(), nullptr, implementation, nullptr);
  return digest;
}

std::string base64WithLineFeed(std::span<const unsigned char> bytes) {
  const BioChain chain(BIO_push(BIO_new(BIO_f_base64()), BIO_new(BIO_s_mem())));
  BIO_write(chain.get(), bytes.data(), static_cast<int>(bytes.size()));
  BIO_flush(chain.get());
  return textIn(chain.get());
}

bool verifyDsaSha1(std::span<const unsigned char> key, std::span<const unsigned char> message,
                   std::span<const unsigned char> signature) {
  if (key.size() > static_cast<std::size_t>(std::numeric_limits<long>::max())) return false;
  const unsigned char* position = key.data();
  const Key parsed(d2i_PUBKEY(nullptr, &position, static_cast<long>(key.size())));
  if (!parsed || EVP_PKEY_get_base_id(parsed.get()) != EVP_PKEY_DSA) return false;
  const DigestContext context(EVP_MD_CTX_new());
  return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha1(), nullptr, parsed.get()) == 1 &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                          message.size()) == 1;
}

std::optional<Bytes> signDsaSha1(std::string_view privateKey,
                                 std::span<const unsigned char> message) {
  const Key key = privateKeyOf(privateKey);
  if (!key) return std::nullopt;
  const DigestContext context(EVP_MD_CTX_new());
  Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(key.get())));
  std::size_t length = signature.size();
  if (EVP_DigestSignInit(context.get(), nullptr, EVP_sha1(), nullptr, key.get()) != 1 ||
      EVP_DigestSign(context.get(), signature.data(), &length, message.data(), message.size()) !=
          1) {
    return std::nullopt;
  }
  signature.resize(length);
  return signature;
}

std::optional<std::string> publicHalfOf(std::string_view privateKey) {
  const Key key = privateKeyOf(privateKey);
  return key ? publicTextOf(key.get()) : std::nullopt;
}

std::optional<KeyPair> makeDsaKeyPair() {
  const Key parameters = makeDsaParameters();
  if (!parameters) return std::nullopt;
  const KeyContext context(EVP_PKEY_CTX_new(parameters.get(), nullptr));
  EVP_PKEY* made = nullptr;
  if (EVP_PKEY_keygen_init(context.get()) != 1 || EVP_PKEY_keygen(context.get(), &made) != 1) {
    return std::nullopt;
  }
  const Key key(made);
  auto privateKey = privateTextOf(key.get());
  auto publicKey = publicTextOf(key.get());
  if (!privateKey || !publicKey) return std::nullopt;
  return KeyPair{.privateKey = std::move(*privateKey), .publicKey = std::move(*publicKey)};
}

}  // namespace tarnwick::crypto
