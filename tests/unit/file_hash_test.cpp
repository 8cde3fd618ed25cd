#include "transfer/signing/file_hash.hpp"

#include <gtest/gtest.h>

#include "testbed/scratch.hpp"

namespace tarnwick {
namespace {

TEST(FileHash, HashesFilesAndTexts) {
  const testbed::Scratch scratch;
  const std::string empty = scratch.write("empty", "");
  const std::string large = scratch.write("large", std::string(10000, 'a'));
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(empty), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(large), "0d0c9c4db6953fee9e03f528cafd7d3e");
  EXPECT_EQ(FileHash::sha1HashOfFileAtPath(large), "a080cbda64850abb7b7f67ee875ba068074ff6fe");
  const auto longest = FileHash::sha512HashOfFileAtPath(empty).value_or("");
  EXPECT_TRUE(longest.starts_with("cf83e1357eefb8bd") && longest.size() == 128) << longest;
  EXPECT_FALSE(FileHash::md5HashOfFileAtPath(scratch.path("missing")));
  EXPECT_FALSE(FileHash::sha1HashOfFileAtPath(scratch.path(".")));

  EXPECT_EQ(FileHash::md5HashOfStringRawDigest("abc", false), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(FileHash::md5HashOfStringRawDigest("abc", true),
            "\x90\x01\x50\x98\x3c\xd2\x4f\xb0\xd6\x96\x3f\x7d\x28\xe1\x7f\x72");
  EXPECT_EQ(FileHash::md5HashAsBase64OfString("abc"), "kAFQmDzST7DWlj99KOF/cg==\n");
  EXPECT_EQ(FileHash::sha1OfString("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(FileHash, UsesAnAlgorithmOfTheCaller) {
  const testbed::Scratch scratch;
  unsigned length = 0;
  const _FileHashComputationContext context{
      [](void* state) { *static_cast<unsigned*>(state) = 1; },
      [](void* state, const void*, std::uint32_t more) { *static_cast<unsigned*>(state) += more; },
      [](unsigned char* output, void* state) {
        *output = static_cast<unsigned char>(*static_cast<unsigned*>(state));
      },
      1, &length};
  EXPECT_EQ(FileHash::hashOfFileAtPathWithComputationContext(
                scratch.write("file", std::string(5000, 'a')), &context),
            "89");
}

}  // namespace
}  // namespace tarnwick
