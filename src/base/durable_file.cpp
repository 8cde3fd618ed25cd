#include "base/durable_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "base/file_descriptor.hpp"
#include "base/files.hpp"

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

// No ending that ClamAV knows, so that a staged file is never loaded as a database.
constexpr std::string_view stagedPrefix = ".tarnwick-staged.";

/// A new file beside a target, which vanishes again unless it has been put in the target's place.
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

  void setAttributes(const FileAttributes& attributes) const {
    constexpr auto unchanged = static_cast<uid_t>(-1);
    // Ignored where it fails: without super-user rights the file is installed all the same.
    [[maybe_unused]] const int owned =
        ::fchown(descriptor(), attributes.owner.value_or(unchanged),
                 attributes.group.value_or(static_cast<gid_t>(unchanged)));
    ::fchmod(descriptor(), attributes.mode);
  }

  bool putInPlace() {
    if (::fsync(descriptor()) != 0) return false;
    std::error_code ignored;
    // A folder where the file belongs would refuse the rename.
    if (fs::is_directory(fs::symlink_status(target_, ignored))) fs::remove_all(target_, ignored);
    placed_ = ::rename(path_.c_str(), target_.c_str()) == 0;
    if (placed_) syncFolder();
    return placed_;
  }

 private:
  void syncFolder() const {
    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : fs::path(".");
    const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.isOpen()) ::fsync(opened.get());
  }

  fs::path target_;
  std::string path_;
  FileDescriptor descriptor_;
  bool placed_ = false;
};

/// Neither follows a link nor waits at a named pipe that somebody has put in the file's place.
FileDescriptor openPlainFile(const fs::path& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
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

}  // namespace

bool moveFileIntoPlace(const fs::path& source, const fs::path& target,
                       const FileAttributes& attributes) {
  const FileDescriptor opened = openPlainFile(source);
  if (!opened.isOpen()) return false;
  StagedFile staged(target);
  if (!staged.isOpen() || !copyContent(opened.get(), staged.descriptor())) return false;
  staged.setAttributes(attributes);
  if (!staged.putInPlace()) return false;
  ::unlink(source.c_str());
  return true;
}

bool writeFileWhole(const fs::path& target, std::string_view content, mode_t mode) {
  StagedFile staged(target);
  if (!staged.isOpen() || !writeFully(staged.descriptor(), content)) return false;
  staged.setAttributes({.owner = {}, .group = {}, .mode = mode});
  return staged.putInPlace();
}

void removeStagedLeftovers(const fs::path& directory) {
  for (const std::string& name : namesIn(directory).value_or(std::vector<std::string>{})) {
    if (name.starts_with(stagedPrefix)) ::unlink((directory / name).c_str());
  }
}

}  // namespace tarnwick
