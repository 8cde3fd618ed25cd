#include "base/durable_file.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/files.hpp"
#include "testbed/scratch.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status;
}

TEST(DurableFiles, AreRenamedWithinAFileSystemAndCopiedElsewhere) {
  const struct {
    bool secondName, folderInTheWay;
  } cases[] = {{false, false}, {true, false}, {false, true}};
  for (const auto& [secondName, folderInTheWay] : cases) {
    const testbed::Scratch scratch;
    const std::string source = scratch.write("new", "new");
    const std::string target = scratch.path("target");
    if (secondName) fs::create_hard_link(source, scratch.path("second"));
    if (folderInTheWay) fs::create_directories(scratch.path("target/full/of"));
    if (!folderInTheWay) fs::create_hard_link(scratch.write("old", "old"), target);
    const struct stat before = statusOf(source);
    ASSERT_TRUE(moveFileIntoPlace(source, target, {.owner = {}, .group = {}, .mode = 0640}));
    EXPECT_EQ(scratch.read("target"), "new");
    EXPECT_EQ(statusOf(target).st_mode & 07777, 0640U);
    EXPECT_EQ(statusOf(target).st_ino == before.st_ino, !secondName);
    EXPECT_FALSE(fileExists(source));
    // What else goes by the name of a file stays as it was.
    EXPECT_TRUE(!secondName || statusOf(scratch.path("second")).st_mode == before.st_mode);
    EXPECT_TRUE(folderInTheWay || scratch.read("old") == "old");
  }
}

TEST(DurableFiles, StayAsTheyWereWhereAMoveFails) {
  const testbed::Scratch scratch;
  const std::string target = scratch.write("target", "old");
  fs::create_symlink(scratch.write("elsewhere", "new"), scratch.path("link"));
  ::mkfifo(scratch.path("pipe").c_str(), 0600);
  for (const auto* const source : {"link", "pipe", "missing", ""}) {
    EXPECT_FALSE(moveFileIntoPlace(scratch.path(source), target, {})) << source;
  }
  EXPECT_FALSE(moveFileIntoPlace(scratch.path("elsewhere"), scratch.path("none/target"), {}));
  EXPECT_EQ(scratch.read("target") + scratch.read("elsewhere"), "oldnew");
  EXPECT_EQ(namesIn(scratch.path(""))->size(), 4U);
}

}  // namespace
}  // namespace tarnwick
