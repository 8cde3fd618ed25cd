#include "transfer/signing/crypto.hpp"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <limits>

namespace tarnwick::crypto {
namespace {

struct Free {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, Free>;
using PublicKey = std::unique_ptr<EVP_PKEY, Free>;
using BioChain = std::unique_ptr<BIO, Free>;

const EVP_MD* implementationOf(DigestAlgorithm algorithm) {
  switch (algorithm) {
    case DigestAlgorithm::md5:
      return EVP_md5();
    case DigestAlgorithm::sha1:
      return EVP_sha1();
    case DigestAlgorithm::sha512:
      return EVP_sha512();
  }
  return nullptr;
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
  const char* text = nullptr;
  const long length = BIO_get_mem_data(chain.get(), &text);  // NOLINT(*-cstyle-cast): its macro
  return {text, static_cast<std::size_t>(length)};
}

bool verifyDsaSha1(std::span<const unsigned char> key, std::span<const unsigned char> message,
                   std::span<const unsigned char> signature) {
  if (key.size() > static_cast<std::size_t>(std::numeric_limits<long>::max())) return false;
  const unsigned char* position = key.data();
  const PublicKey parsed(d2i_PUBKEY(nullptr, &position, static_cast<long>(key.size())));
  if (!parsed || EVP_PKEY_get_base_id(parsed.get()) != EVP_PKEY_DSA) return false;
  const DigestContext context(EVP_MD_CTX_new());
  return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha1(), nullptr, parsed.get()) == 1 &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                          message.size()) == 1;
}

}  // namespace tarnwick::crypto
