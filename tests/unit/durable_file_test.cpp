#include "base/durable_file.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_tree.hpp"
#include "testbed/scratch.hpp"
#include "vendor/database_install.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

constexpr uid_t somebody = 65534;

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status;
}

TEST(DurableFiles, AreRenamedWithinAFileSystemAndCopiedElsewhere) {
  const struct {
    bool secondName, somebodyElses, folderInTheWay;
  } cases[] = {{false, false, false},
               {true, false, false},
               {false, ::geteuid() == 0, false},
               {false, false, true}};
  for (const auto& [secondName, somebodyElses, folderInTheWay] : cases) {
    const testbed::Scratch scratch;
    const std::string source = scratch.write("new", "new");
    const std::string target = scratch.path("target");
    if (secondName) fs::create_hard_link(source, scratch.path("second"));
    const uid_t owner = somebodyElses ? somebody : ::geteuid();
    ASSERT_EQ(::chown(source.c_str(), owner, ::getegid()), 0);
    if (folderInTheWay) fs::create_directories(scratch.path("target/full/of"));
    if (!folderInTheWay) fs::create_hard_link(scratch.write("old", "old"), target);
    const struct stat before = statusOf(source);
    EXPECT_FALSE(moveFileIntoPlace(source, target, {.owner = {}, .group = {}, .mode = 0640}));
    EXPECT_EQ(scratch.read("target"), "new");
    EXPECT_EQ(statusOf(target).st_mode & 07777, 0640U);
    // A user with another link to the file, or with the file open, could change an installed one.
    EXPECT_EQ(statusOf(target).st_ino == before.st_ino, !secondName && !somebodyElses);
    EXPECT_EQ(statusOf(target).st_uid, ::geteuid());
    EXPECT_FALSE(fileExists(source));
    // Other links to the source or to the old target stay unchanged.
    EXPECT_TRUE(!secondName || statusOf(scratch.path("second")).st_mode == before.st_mode);
    EXPECT_TRUE(folderInTheWay || scratch.read("old") == "old");
  }
}

TEST(DurableFiles, AreUnchangedAfterAFailedMove) {
  const testbed::Scratch scratch;
  const std::string target = scratch.write("target", "old");
  fs::create_symlink(scratch.write("elsewhere", "new"), scratch.path("link"));
  ::mkfifo(scratch.path("pipe").c_str(), 0600);
  for (const auto* const source : {"link", "pipe", "missing", ""}) {
    EXPECT_TRUE(moveFileIntoPlace(scratch.path(source), target, {})) << source;
  }
  EXPECT_TRUE(moveFileIntoPlace(scratch.path("elsewhere"), scratch.path("none/target"), {}));
  const auto failure = writeFileWhole(scratch.path("none/target"), "new", 0644);
  ASSERT_TRUE(failure);
  EXPECT_EQ(describe(failure->cause), scratch.path("none/target: No such file or directory"));
  EXPECT_EQ(scratch.read("target") + scratch.read("elsewhere"), "oldnew");
  EXPECT_EQ(namesIn(scratch.path(""))->size(), 4U);
}

TEST(DurableFiles, CountAsNotInstalledIfTheirFolderCannotBeSynced) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can change the owner of a folder";
  }
  const testbed::Scratch scratch("/tmp");
  const std::string target = scratch.path("folder/target");
  fs::create_directory(scratch.path("folder"));
  for (const auto* const name : {"", "folder"}) {
    ASSERT_EQ(::chown(scratch.path(name).c_str(), somebody, somebody), 0);
    ASSERT_EQ(::chmod(scratch.path(name).c_str(), 0300), 0);
  }
  ASSERT_EQ(::seteuid(somebody), 0);
  const auto notInstalled = installDatabase(scratch.write("new", "new"), target);
  const auto failure = writeFileWhole(scratch.path("folder/other"), "new", 0644);
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_TRUE(notInstalled);
  EXPECT_EQ(scratch.read("folder/target"), "new");
  ASSERT_TRUE(failure);
  EXPECT_TRUE(failure->isInPlace);
  EXPECT_EQ(describe(failure->cause), scratch.path("folder: Permission denied"));
}

}  // namespace
}  // namespace tarnwick
