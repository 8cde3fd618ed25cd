#include "program/run_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "base/platform_log.hpp"
#include "driver/termination.hpp"

namespace tarnwick {
namespace {

constexpr auto lockName = "lock";

/// Whether the open file has this type, and no other user can change or lock it.
bool isOursAlone(const FileDescriptor& opened, mode_t type) {
  struct stat status = {};
  return opened.isOpen() && ::fstat(opened.get(), &status) == 0 &&
         (status.st_mode & S_IFMT) == type && status.st_uid == ::geteuid() &&
         (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

struct StateFolder {
  FileDescriptor opened;
  bool wasClosed = false;  ///< other users could not open it before this run
};

/// Opens the state folder, and creates it if it does not exist. Closes it to other users.
StateFolder openStateFolder() {
  ::mkdir("/var/lib", 0755);  // not every system has it
  ::mkdir(stateDirectory, 0700);
  FileDescriptor folder(::open(stateDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.isOpen()) return {};
  const bool wasClosed = isOursAlone(folder, S_IFDIR);
  [[maybe_unused]] const int owned = ::fchown(folder.get(), ::geteuid(), ::getegid());
  ::fchmod(folder.get(), 0700);
  return {std::move(folder), wasClosed};
}

FileDescriptor openLockFile(const FileDescriptor& folder, int flags) {
  constexpr int always = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  return FileDescriptor(::openat(folder.get(), lockName, always | flags, 0600));
}

struct LockFile {
  FileDescriptor opened;
  bool isNew = false;
};

LockFile openLockFile(const FileDescriptor& folder) {
  FileDescriptor made = openLockFile(folder, O_CREAT | O_EXCL);
  if (made.isOpen()) return {std::move(made), true};
  FileDescriptor found = openLockFile(folder, 0);
  if (isOursAlone(found, S_IFREG)) return {std::move(found), false};
  // Another user may have opened this file while the folder was open to all.
  removeTree(std::filesystem::path(stateDirectory) / lockName);
  return {openLockFile(folder, O_CREAT), true};
}

void lock(const FileDescriptor& opened) {
  if (::flock(opened.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
  platformLog("Another run is in progress. Waiting for it to end.");
  while (::flock(opened.get(), LOCK_EX) != 0 && errno == EINTR) {
  }
}

}  // namespace

RunLock RunLock::acquire() {
  const OtherRunsSpared whileWaiting;
  const StateFolder folder = openStateFolder();
  if (!folder.opened.isOpen()) return RunLock({});
  LockFile file = openLockFile(folder.opened);
  if (!file.opened.isOpen()) return RunLock({});
  lock(file.opened);
  // A run of an earlier release, which locks the folder, may still be active during an upgrade. If
  // the folder was open to all, any user could hold that lock, so do not wait for it.
  if (file.isNew && folder.wasClosed) lock(folder.opened);
  return RunLock(std::move(file.opened));
}

}  // namespace tarnwick
