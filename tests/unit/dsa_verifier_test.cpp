#include "transfer/signing/dsa_verifier.hpp"

#include <gtest/gtest.h>

namespace tarnwick {
namespace {

TEST(DsaVerifier, RefusesWhereAnArgumentIsAbsent) {
  using Verifier = DVSUDSAVerifier;
  const std::optional<std::string_view> text = "text";
  for (int absent = 0; absent < 3; ++absent) {
    const auto unless = [absent, text](int number) {
      return number == absent ? std::nullopt : text;
    };
    EXPECT_FALSE(Verifier::validateStringWithEncodedDSASignatureWithPublicDSAKey(
        unless(0), unless(1), unless(2)));
    EXPECT_FALSE(Verifier::validatePathWithEncodedDSASignatureWithPublicDSAKey(unless(0), unless(1),
                                                                               unless(2)));
  }
}

}  // namespace
}  // namespace tarnwick
