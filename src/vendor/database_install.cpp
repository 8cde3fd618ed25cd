#include "vendor/database_install.hpp"

#include <optional>

#include "base/durable_file.hpp"
#include "base/file_tree.hpp"
#include "driver/commands.hpp"
#include "driver/database_folder.hpp"

namespace tarnwick {
namespace {

FileAttributes databaseAttributes() {
  const DatabaseOwner owner = databaseOwner();
  return {.owner = owner.user, .group = owner.group, .mode = 0664};
}

}  // namespace

bool scannerAccepts(const RunContext& context, const std::filesystem::path& database) {
  const ProgramResult test =
      runProgram({.executable = context.clamscanPath,
                  .arguments = {"--quiet", "-d", database.string(), context.clamscanPath},
                  .output = ProgramOutput::dropped});
  return test.status.isSuccess();
}

bool installDatabase(const std::filesystem::path& database,
                     const std::filesystem::path& installed) {
  const FileAttributes attributes = databaseAttributes();
  std::optional<ReplacementFailure> failure = moveFileIntoPlace(database, installed, attributes);
  if (failure && !failure->isInPlace) {
    removeTree(installed);
    // On a full disk that has made the room.
    failure = moveFileIntoPlace(database, installed, attributes);
  }
  return !failure;
}

}  // namespace tarnwick
