#include "transfer/dsa_verifier.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/text_rules.hpp"
#include "testbed/scratch.hpp"

namespace tarnwick {
namespace {

using Decoded = std::vector<unsigned char>;

TEST(SignatureBase64, EndsInItsOwnWay) {
  for (const auto* const text : {"YWJj", "Y W\nJ\tj", "YWJjZ"}) {  // a single value is dropped
    EXPECT_EQ(decodeSignatureBase64(text), Decoded({'a', 'b', 'c'})) << text;
  }
  // Junk costs a byte behind a full group, and behind a partial one it does not.
  for (const auto* const text : {"YWI=", "YWJj\r", "YWJj=", "YWI=\r"}) {
    EXPECT_EQ(decodeSignatureBase64(text), Decoded({'a', 'b'})) << text;
  }
  // Where nothing decodes, the zeros stay.
  for (const auto* const text : {"====", "="}) EXPECT_EQ(decodeSignatureBase64(text), Decoded(3));
  EXPECT_EQ(decodeSignatureBase64(""), Decoded());
}

TEST(KeyText, KeepsTheEndsOfBlankLines) {
  EXPECT_EQ(derOfPublicKeyText(" \n \n \n \n="), Decoded(6));  // room for five characters
}

/// Keys and signatures by the openssl command line, never by our own code.
class DsaVerifier : public testing::Test {
 protected:
  void SetUp() override {
    shell(fmt::format("openssl genpkey -paramfile {} -out key.pem", DSA_PARAMETERS));
    shell("openssl pkey -in key.pem -pubout -out public.pem");
    shell("printf 'VestRUM definitions\\n' > file");
    sign("openssl dgst -sha1 -binary file | ");
    key_ = replaced(scratch_.read("public.pem"), "\n", "");
  }

  void shell(const std::string& command) const {
    const std::string line = fmt::format("cd {} && {}", scratch_.path(""), command);
    ASSERT_EQ(std::system(line.c_str()), 0) << line;
  }

  void sign(const std::string& digestFirst) const {
    shell(digestFirst + "openssl dgst -sha1 -sign key.pem | base64 -w0 > file.signature");
  }

  [[nodiscard]] bool fileIsValid(const std::string& signature, const std::string& key) const {
    return DVSUDSAVerifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
        scratch_.path("file"), signature, key);
  }

  [[nodiscard]] std::string signature() const { return scratch_.read("file.signature"); }

  testbed::Scratch scratch_;
  std::string key_;
};

TEST_F(DsaVerifier, AcceptsWhatTheVendorSigned) {
  EXPECT_TRUE(fileIsValid(signature(), key_));
  EXPECT_TRUE(fileIsValid(signature() + "\n\n\n", key_));
  EXPECT_TRUE(fileIsValid(signature(), scratch_.read("public.pem")));
  std::string untidy = scratch_.read("public.pem");
  untidy.insert(untidy.find('\n', 30), " \t");  // behind the first line of the body
  EXPECT_TRUE(fileIsValid(signature(), fmt::format("\n{}", untidy)));
  EXPECT_TRUE(DVSUDSAVerifier::validateStringWithEncodedDSASignatureWithPublicDSAKey(
      "VestRUM definitions\n", signature(), key_));
}

TEST_F(DsaVerifier, RefusesEverythingElse) {
  const std::string good = signature();
  for (const std::string& bad :
       {std::string(), std::string("\n"), std::string("===="), fmt::format("A{}", good),
        good.substr(4), std::string("not Base64 at all")}) {
    EXPECT_FALSE(fileIsValid(bad, key_)) << bad;
  }
  for (const std::string& key :
       {std::string(), std::string("-----"), key_.substr(0, 900), replaced(key_, "M", "N")}) {
    EXPECT_FALSE(fileIsValid(good, key)) << key;
  }
  using Verifier = DVSUDSAVerifier;
  EXPECT_FALSE(Verifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(
      scratch_.path("missing"), good, key_));
  EXPECT_FALSE(Verifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(scratch_.path("file"),
                                                                             std::nullopt, key_));
  EXPECT_FALSE(Verifier::validateStringWithEncodedDSASignatureWithPublicDSAKey(
      "VestRUM definitions", good, key_));
  sign("cat file | ");  // over the file itself
  EXPECT_FALSE(fileIsValid(signature(), key_));
  shell("openssl genpkey -algorithm RSA -out key.pem 2>/dev/null");
  shell("openssl pkey -in key.pem -pubout -out public.pem");
  sign("openssl dgst -sha1 -binary file | ");
  EXPECT_FALSE(fileIsValid(signature(), scratch_.read("public.pem")));
}

}  // namespace
}  // namespace tarnwick
