#include "transfer/file_hash.hpp"

#include <gtest/gtest.h>

#include <span>

#include "scratch.hpp"

namespace tarnwick {
namespace {

TEST(FileHash, DigestsFilesOfEverySize) {
  const test::Scratch scratch;
  const std::string empty = scratch.write("empty", "");
  const std::string large = scratch.write("large", std::string(10000, 'a'));
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(empty), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(FileHash::md5HashOfFileAtPath(large), "0d0c9c4db6953fee9e03f528cafd7d3e");
  EXPECT_EQ(FileHash::sha1HashOfFileAtPath(large), "a080cbda64850abb7b7f67ee875ba068074ff6fe");
  EXPECT_EQ(FileHash::sha512HashOfFileAtPath(empty)->substr(0, 32),
            "cf83e1357eefb8bdf1542850d66d8007");
  EXPECT_EQ(FileHash::sha512HashOfFileAtPath(empty)->size(), 128U);
}

TEST(FileHash, HasNoDigestOfWhatCannotBeRead) {
  const test::Scratch scratch;
  EXPECT_FALSE(FileHash::md5HashOfFileAtPath(scratch.path("missing")));
  EXPECT_FALSE(FileHash::sha1HashOfFileAtPath(scratch.path(".")));
}

/// An algorithm of the caller's own: the sum of the bytes.
void start(void* state) {
  *static_cast<unsigned*>(state) = 1;
}
void add(void* state, const void* bytes, std::uint32_t length) {
  for (const unsigned char byte : std::span(static_cast<const unsigned char*>(bytes), length)) {
    *static_cast<unsigned*>(state) += byte;
  }
}
void end(unsigned char* output, void* state) {
  output[0] = static_cast<unsigned char>(*static_cast<unsigned*>(state));
}

TEST(FileHash, TakesAnAlgorithmOfTheCallers) {
  const test::Scratch scratch;
  unsigned sum = 0;
  const _FileHashComputationContext context{start, add, end, 1, &sum};
  const auto hash = [&context](const std::string& path) {
    return FileHash::hashOfFileAtPathWithComputationContext(path, &context);
  };
  EXPECT_EQ(hash(scratch.write("file", std::string(5000, '\1'))), "89");
  EXPECT_EQ(hash(scratch.path(".")), std::nullopt);
}

TEST(FileHash, DigestsTexts) {
  EXPECT_EQ(FileHash::md5HashOfStringRawDigest("abc", false), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(FileHash::md5HashOfStringRawDigest("abc", true).size(), 16U);
  EXPECT_EQ(FileHash::md5HashOfStringRawDigest("abc", true).substr(0, 2), "\x90\x01");
  EXPECT_EQ(FileHash::md5HashAsBase64OfString(""), "1B2M2Y8AsgTpgAmY7PhCfg==\n");
  EXPECT_EQ(FileHash::md5HashAsBase64OfString("abc"), "kAFQmDzST7DWlj99KOF/cg==\n");
  EXPECT_EQ(FileHash::sha1OfString("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

}  // namespace
}  // namespace tarnwick
