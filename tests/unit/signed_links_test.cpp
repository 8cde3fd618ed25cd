#include "vendor/signed_links.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "settings/vendor_settings.hpp"

namespace tarnwick {
namespace {

TEST(SignedLinks, MatchTheResultOfTheOpensslCommands) {
  if (settings::linkSecret != "Kesto-Ra") GTEST_SKIP() << "this build has a vendor's own secret";
  // printf 'Kesto-Ra/VestRUM2/Scripted/VestRUM-db-version.txt1794477660' |
  //   openssl md5 -binary | openssl base64 | tr '+/' '-_' | tr -d =
  EXPECT_EQ(signedLinkForPathAt("/VestRUM2/Scripted/VestRUM-db-version.txt", 1794477600.9),
            fmt::format("https://{}/m-ljH-R6IhN2GsJ0Zjo6Mw/1794477660"
                        "/VestRUM2/Scripted/VestRUM-db-version.txt",
                        settings::linkHost));
  EXPECT_TRUE(signedLinkForPathAt("x", 0).ends_with("/60x"));
}

}  // namespace
}  // namespace tarnwick
