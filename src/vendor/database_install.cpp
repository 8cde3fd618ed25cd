#include "vendor/database_install.hpp"

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

std::optional<FileFailure> installDatabase(const std::filesystem::path& database,
                                           const std::filesystem::path& installed) {
  const FileAttributes attributes = databaseAttributes();
  std::optional<ReplacementFailure> failure = moveFileIntoPlace(database, installed, attributes);
  if (failure && !failure->isInPlace) {
    removeTree(installed);
    failure = moveFileIntoPlace(database, installed, attributes);
  }
  return failure ? std::optional(failure->cause) : std::nullopt;
}

}  // namespace tarnwick
