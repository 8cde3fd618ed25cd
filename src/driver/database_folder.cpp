#include "driver/database_folder.hpp"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <string>
#include <system_error>

#include "base/file_tree.hpp"
#include "base/shell_word.hpp"
#include "driver/commands.hpp"
#include "platform/platform.hpp"

namespace tarnwick {

namespace {

/// Empty if the user or the group does not exist.
std::string commandToBecomeClamav() {
  const DatabaseOwner owner = databaseOwner();
  if (!owner.user || !owner.group) return {};
  return platform::commandToBecome("clamav", "clamav");
}

}  // namespace

DatabaseOwner databaseOwner() {
  // NOLINTBEGIN(concurrency-mt-unsafe): no other thread looks up users
  const passwd* const user = ::getpwnam("clamav");
  const group* const members = ::getgrnam("clamav");
  // NOLINTEND(concurrency-mt-unsafe)
  return {.user = user != nullptr ? std::optional(user->pw_uid) : std::nullopt,
          .group = members != nullptr ? std::optional(members->gr_gid) : std::nullopt};
}

std::filesystem::path inDataDirectory(const RunContext& context, std::string_view name) {
  return std::filesystem::path(context.dataDirectory) / name;
}

DataDirectoryUse dataDirectoryUse(const RunContext& context) {
  if (context.dataDirectory.empty()) return DataDirectoryUse::nothing;
  struct stat root = {};
  struct stat directory = {};
  if (!isPlainShellWord(context.dataDirectory) || ::stat("/", &root) != 0) {
    return DataDirectoryUse::files;
  }
  const bool found = ::stat(context.dataDirectory.c_str(), &directory) == 0;
  const bool isRoot = found && directory.st_dev == root.st_dev && directory.st_ino == root.st_ino;
  return isRoot ? DataDirectoryUse::files : DataDirectoryUse::commands;
}

void removeFolderNamed(const RunContext& context, std::string_view name) {
  if (dataDirectoryUse(context) == DataDirectoryUse::nothing) return;
  const std::filesystem::path path = inDataDirectory(context, name);
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) removeTree(path);
}

void giveDatabasesToClamav(const RunContext& context) {
  // A mistaken argument must not turn into a command on the whole file system.
  if (dataDirectoryUse(context) != DataDirectoryUse::commands) return;
  runShellCommand(fmt::format("chown -R clamav:clamav {}", context.dataDirectory));
  runShellCommand(fmt::format("chmod 0775 {}", context.dataDirectory));
  // The files now belong to "clamav", who could put links there. Run chmod with the rights of
  // "clamav", so that it cannot follow a link to a file of root.
  runShellCommand(fmt::format("{}chmod 0664 {}/*", commandToBecomeClamav(), context.dataDirectory));
}

}  // namespace tarnwick
