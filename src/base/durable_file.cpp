#include "base/durable_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "base/disk_sync.hpp"
#include "base/file_descriptor.hpp"
#include "base/file_tree.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

// The name has no ending that ClamAV knows, so that it never loads a staged file as a database.
constexpr std::string_view stagedPrefix = ".tarnwick-staged.";

void setAttributes(int file, const FileAttributes& attributes) {
  constexpr auto unchanged = static_cast<uid_t>(-1);
  // Ignore a failure: without super-user rights the run installs the file anyway.
  [[maybe_unused]] const int owned =
      ::fchown(file, attributes.owner.value_or(unchanged),
               attributes.group.value_or(static_cast<gid_t>(unchanged)));
  ::fchmod(file, attributes.mode);
}

FileFailure failureAt(const fs::path& path) {
  return {.path = path, .error = errno};
}

ReplacementFailure notReplaced(const fs::path& path) {
  return {.cause = failureAt(path)};
}

/// Syncs a file and renames it over the target on the same file system.
std::optional<ReplacementFailure> renameOver(int file, const fs::path& path,
                                             const fs::path& target) {
  if (!syncToDisk(file)) return notReplaced(path);
  std::error_code ignored;
  // The rename fails if a folder is at the target.
  if (fs::is_directory(fs::symlink_status(target, ignored))) fs::remove_all(target, ignored);
  if (::rename(path.c_str(), target.c_str()) != 0) return notReplaced(target);
  const std::optional<FileFailure> unsynced = syncFolder(target.parent_path());
  if (!unsynced) return std::nullopt;
  return ReplacementFailure{.cause = *unsynced, .isInPlace = true};
}

bool isInPlaceAfter(const std::optional<ReplacementFailure>& failure) {
  return !failure || failure->isInPlace;
}

/// A new file beside a target. The destructor deletes it unless it replaced the target.
class StagedFile {
 public:
  explicit StagedFile(const fs::path& target)
      : target_(target), path_((target.parent_path() / stagedPrefix).string() + "XXXXXX") {
    descriptor_.reset(::mkostemp(path_.data(), O_CLOEXEC));
  }
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  ~StagedFile() {
    if (descriptor_.isOpen() && !placed_) ::unlink(path_.c_str());
  }

  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  [[nodiscard]] bool isOpen() const { return descriptor_.isOpen(); }

  std::optional<ReplacementFailure> putInPlace(const FileAttributes& attributes) {
    setAttributes(descriptor(), attributes);
    std::optional<ReplacementFailure> failure = renameOver(descriptor(), path_, target_);
    placed_ = isInPlaceAfter(failure);
    return failure;
  }

 private:
  fs::path target_;
  std::string path_;
  FileDescriptor descriptor_;
  bool placed_ = false;
};

/// Opens a regular file only. Does not follow a link, and does not wait for the writer of a named
/// pipe, because another user may have put either at this path.
FileDescriptor openPlainFile(const fs::path& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  const bool plain = file.isOpen() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
  return plain ? std::move(file) : FileDescriptor();
}

bool copyContent(int from, int to) {
  std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by read
  for (;;) {
    const ssize_t count = readSome(from, buffer);
    if (count == 0) return true;
    if (count < 0) return false;
    if (!writeFully(to, {buffer.data(), static_cast<std::size_t>(count)})) return false;
  }
}

/// Whether both seem to be on one file system, and the file belongs to this process alone: setting
/// owner and mode would change them under the file's other names too.
bool canBeRenamed(int file, const fs::path& target) {
  const fs::path folder = target.parent_path().empty() ? "." : target.parent_path();
  struct stat source = {};
  struct stat destination = {};
  return ::fstat(file, &source) == 0 && ::stat(folder.c_str(), &destination) == 0 &&
         source.st_dev == destination.st_dev && source.st_nlink == 1 &&
         source.st_uid == ::geteuid();
}

std::optional<ReplacementFailure> moveByCopy(int file, const fs::path& source,
                                             const fs::path& target,
                                             const FileAttributes& attributes) {
  StagedFile staged(target);
  if (!staged.isOpen() || !copyContent(file, staged.descriptor())) return notReplaced(target);
  std::optional<ReplacementFailure> failure = staged.putInPlace(attributes);
  if (isInPlaceAfter(failure)) ::unlink(source.c_str());
  return failure;
}

/// Whether the error only means that the file system cannot sync a folder.
bool cannotBeSynced(int error) {
  return error == EINVAL || error == ENOTSUP || error == ENOSYS;
}

}  // namespace

std::optional<ReplacementFailure> moveFileIntoPlace(const fs::path& source, const fs::path& target,
                                                    const FileAttributes& attributes) {
  const FileDescriptor opened = openPlainFile(source);
  if (!opened.isOpen()) return notReplaced(source);
  if (canBeRenamed(opened.get(), target)) {
    setAttributes(opened.get(), attributes);
    std::optional<ReplacementFailure> failure = renameOver(opened.get(), source, target);
    if (isInPlaceAfter(failure)) return failure;
  }
  // rename fails between two mounts of the same file system; a copy works there.
  return moveByCopy(opened.get(), source, target, attributes);
}

std::optional<ReplacementFailure> writeFileWhole(const fs::path& target, std::string_view content,
                                                 mode_t mode) {
  StagedFile staged(target);
  if (!staged.isOpen() || !writeFully(staged.descriptor(), content)) return notReplaced(target);
  return staged.putInPlace({.owner = {}, .group = {}, .mode = mode});
}

std::optional<FileFailure> syncFileAndFolder(const fs::path& path) {
  const FileDescriptor opened(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!opened.isOpen() || !syncToDisk(opened.get())) return failureAt(path);
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  if (error) return FileFailure{.path = path, .error = error.value()};
  return syncFolder(real.parent_path());
}

std::optional<FileFailure> syncFolder(const fs::path& folder) {
  const FileDescriptor opened(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.isOpen() && (syncToDisk(opened.get()) || cannotBeSynced(errno))) return std::nullopt;
  return failureAt(folder);
}

void removeStagedLeftovers(const fs::path& directory) {
  for (const std::string& name : namesIn(directory).value_or(std::vector<std::string>{})) {
    if (name.starts_with(stagedPrefix)) ::unlink((directory / name).c_str());
  }
}

}  // namespace tarnwick
