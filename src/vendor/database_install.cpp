#include "vendor/database_install.hpp"

#include <grp.h>
#include <pwd.h>

#include "base/durable_file.hpp"
#include "base/files.hpp"
#include "driver/commands.hpp"

namespace tarnwick {
namespace {

FileAttributes databaseAttributes() {
  FileAttributes attributes{.owner = {}, .group = {}, .mode = 0664};
  // NOLINTBEGIN(concurrency-mt-unsafe): nothing else in the program looks users up
  if (const passwd* const user = ::getpwnam("clamav")) attributes.owner = user->pw_uid;
  if (const group* const members = ::getgrnam("clamav")) attributes.group = members->gr_gid;
  // NOLINTEND(concurrency-mt-unsafe)
  return attributes;
}

}  // namespace

bool scannerAccepts(const RunContext& context, const std::filesystem::path& database) {
  const ToolResult test =
      runTool({.executable = context.clamscanPath,
               .arguments = {"--quiet", "-d", database.string(), context.clamscanPath},
               .output = ToolOutput::dropped});
  return test.status == 0;
}

bool installDatabase(const std::filesystem::path& database,
                     const std::filesystem::path& installed) {
  const FileAttributes attributes = databaseAttributes();
  if (moveFileIntoPlace(database, installed, attributes)) return true;
  removeTree(installed);
  // On a full disk that has made the room.
  return moveFileIntoPlace(database, installed, attributes);
}

}  // namespace tarnwick
