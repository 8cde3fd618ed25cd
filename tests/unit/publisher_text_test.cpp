#include <gtest/gtest.h>

#include "publisher/archive.hpp"
#include "publisher/line_order.hpp"
#include "publisher/refusal.hpp"
#include "publisher/script.hpp"
#include "publisher/signature_text.hpp"

namespace tarnwick::publisher {
namespace {

struct Scripted {
  const char* script;
  const char* result;  // of "a\nb\nc\n" in VestRUM.ndb; null when it does not apply
};

class Scripts : public testing::TestWithParam<Scripted> {};

TEST_P(Scripts, LeadWhereSigtoolLeads) {
  const FileSet files{{"VestRUM.ndb", "a\nb\nc\n"}};
  Replay replay(files);
  const bool applied = replay.apply(GetParam().script);
  ASSERT_EQ(applied, GetParam().result != nullptr);
  if (!applied) return;
  EXPECT_EQ(replay.result().at("VestRUM.ndb"), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    All, Scripts,
    testing::Values(
        Scripted{"", "a\nb\nc\n"}, Scripted{"# x\n\nOPEN VestRUM.ndb\nCLOSE\n", "a\nb\nc\n"},
        Scripted{"OPEN VestRUM.ndb\nADD d e\nDEL 1 a\nXCHG 3 c f\nCLOSE\n", "b\nf\nd e\n"},
        Scripted{"OPEN VestRUM.ndb\nDEL 3 c\nDEL 1 a\nCLOSE\n", "b\n"},
        // Numbers are those of the file as the script finds it.
        Scripted{"OPEN VestRUM.ndb\nDEL 1 a\nCLOSE\nOPEN VestRUM.ndb\nDEL 1 b\nCLOSE", "c\n"},
        Scripted{"OPEN VestRUM.ndb\nADD d\nCLOSE\nOPEN VestRUM.ndb\nDEL 4 d\nCLOSE\n", "a\nb\nc\n"},
        Scripted{"OPEN VestRUM.ndb\nDEL 1 b\nCLOSE\n", nullptr},
        Scripted{"OPEN VestRUM.ndb\nDEL 4 a\nCLOSE\n", nullptr},
        Scripted{"OPEN VestRUM.ndb\nDEL 0 a\nCLOSE\n", nullptr},
        Scripted{"OPEN VestRUM.ndb\nDEL 1 a\nXCHG 1 a b\nCLOSE\n", nullptr},
        Scripted{"OPEN VestRUM.ndb\nADD d\n", nullptr}, Scripted{"ADD d\n", nullptr},
        Scripted{"OPEN ../x\nADD d\nCLOSE\n", nullptr},
        Scripted{"MOVE VestRUM.ndb x 1 a 1 a\n", nullptr}, Scripted{"UNLINK other\n", nullptr}));

TEST(Scripts, AreFastInLargeFiles) {
  constexpr int lines = 200000;
  FileSet files;
  for (int i = 0; i < lines; ++i) files["VestRUM.hdb"] += "line\n";
  Replay replay(files);
  for (int i = 0; i < 2000; ++i) {
    ASSERT_TRUE(replay.apply("OPEN VestRUM.hdb\nDEL 1000 line\nDEL 2000 l\nADD new\nCLOSE\n"));
  }
  const FileSet result = replay.result();
  EXPECT_EQ(result.at("VestRUM.hdb").size(), 5U * (lines - 4000U) + 4U * 2000U);
}

TEST(Archives, HoldPlainFilesAlone) {
  const FileSet files{{"COPYING", ""}, {"VestRUM.ndb", std::string(100000, 'x')}};
  const auto packed = packArchive(files);
  ASSERT_TRUE(packed);
  EXPECT_EQ(packArchive(files), packed);
  EXPECT_EQ(unpackArchive(*packed, 100000), files);
  EXPECT_FALSE(unpackArchive(*packed, 99999));
  EXPECT_FALSE(unpackArchive(packed->substr(0, 100), 100000));
  for (const char* const name : {"../x", "a/b", ".hidden", "/x"}) {
    EXPECT_FALSE(unpackArchive(packArchive({{name, "x"}}).value_or(""), 9)) << name;
  }
}

TEST(LineOrder, KeepsWhatIsPublishedAndAddsTheRest) {
  EXPECT_EQ(inPublishedOrder("d\na\nb\na\n", "b\nc\na\n"), "b\na\nd\na\n");
  EXPECT_EQ(inPublishedOrder(FileSet{{"VestRUM.cdb", "b\na\n"}}, {{"VestRUM.cdb", "a\nb\n"}}),
            (FileSet{{"VestRUM.cdb", "b\na\n"}}));
  const LineChanges changes =
      lineChanges({{"x.ndb", "a\nb\nb\n"}, {"x.ldb", "c\n"}, {"COPYING", "y\n"}},
                  {{"x.ndb", "b\nd\n"}, {"x.hdb", "e\n"}, {"x.info", "z\n"}});
  EXPECT_EQ(changes.added, 2);
  EXPECT_EQ(changes.removed, 3);
  EXPECT_EQ(changes.before, 4);
  EXPECT_EQ(changes.lostKind, "ldb");
}

TEST(Texts, AreFitForATerminal) {
  EXPECT_EQ(presentable("a\033b\r\xC3\xA4"), "a?b??");
  EXPECT_EQ(firstLine("\n\nx\ny"), "x");
  EXPECT_EQ(sizeInWords(999), "999 bytes");
  EXPECT_EQ(sizeInWords(2345), "2.3 kB");
  EXPECT_EQ(sizeInWords(13400), "13 kB");
  EXPECT_EQ(sizeInWords(2440000), "2.4 MB");
}

TEST(SignatureText, IsJoinedWithoutCarriageReturns) {
  EXPECT_EQ(asJoined("a\r\nb\r", "ndb"), "a\nb\n");
  EXPECT_EQ(asJoined("a\r\nb", "cbc"), "a\r\nb\n");
  EXPECT_EQ(asJoined("", "ndb"), "");
}

}  // namespace
}  // namespace tarnwick::publisher
