#include "driver/log_place.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <optional>
#include <system_error>

#include "platform/platform.hpp"

namespace tarnwick {
namespace {

constexpr mode_t openToAll = 0666;

bool isOurs(uid_t owner) {
  return owner == 0 || owner == ::geteuid();
}

/// Who can place or exchange a link in a folder.
struct FolderRights {
  bool oursAlone = false;
  bool sticky = false;  ///< ours; others can place links in it but not exchange our links

  static FolderRights of(const FileDescriptor& folder) {
    struct stat status = {};
    if (::fstat(folder.get(), &status) != 0 || !isOurs(status.st_uid)) return {};
    const bool shared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return {!shared, (status.st_mode & S_ISVTX) != 0};
  }

  [[nodiscard]] bool vouchFor(const struct stat& link) const {
    // In a sticky folder another user can give a second name to our link from elsewhere.
    return oursAlone || (sticky && isOurs(link.st_uid) && link.st_nlink == 1);
  }
};

std::string lastError() {
  return std::error_code(errno, std::generic_category()).message();
}

}  // namespace

/// Walks a path name by name, as the kernel does, and checks each link before following it.
class LogPlace::Walk {
 public:
  explicit Walk(LastLink lastLink) : keepsLastLink_(lastLink == LastLink::kept) {}

  std::variant<LogPlace, std::string> go(const std::filesystem::path& path) {
    if (!enterStart(path)) return lastError();
    while (!rest_.empty()) {
      const std::string name = rest_.front();
      rest_.pop_front();
      const std::optional<std::string> refusal = step(name);
      if (refusal) return *refusal;
      if (arrived_) return std::move(place_);
    }
    return std::make_error_code(std::errc::is_a_directory).message();
  }

 private:
  /// Puts the names of a path, or of a link's target, before the names that are still ahead.
  bool enterStart(const std::filesystem::path& path) {
    const std::filesystem::path names = path.relative_path();
    auto before = rest_.begin();
    for (const auto& name : names) {
      if (!name.empty()) before = std::next(rest_.insert(before, name.string()));
    }
    if (path.is_relative() && place_.folder_.isOpen()) return true;
    place_.folder_.reset(platform::openForLookup(AT_FDCWD, path.is_absolute() ? "/" : "."));
    return place_.folder_.isOpen();
  }

  std::optional<std::string> step(const std::string& name) {
    const FolderRights rights = FolderRights::of(place_.folder_);
    place_.oursAlone_ = place_.oursAlone_ && rights.oursAlone;
    const int folder = place_.folder_.get();
    struct stat status = {};
    const bool found = ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    const bool isLast = rest_.empty();
    if (!found && (!isLast || errno != ENOENT)) return lastError();
    if (found && S_ISLNK(status.st_mode) && !(isLast && keepsLastLink_)) {
      if (!rights.vouchFor(status)) return "a link in its path is not root's";
      place_.isDescriptor_ = platform::holdsDescriptors(folder);
      if (!place_.isDescriptor_) return followLink(name);
    }
    if (isLast) return arriveAt(name);
    place_.folder_.reset(platform::openForLookup(folder, name.c_str(), place_.isDescriptor_));
    place_.isDescriptor_ = false;
    return place_.folder_.isOpen() ? std::nullopt : std::optional(lastError());
  }

  std::optional<std::string> arriveAt(const std::string& name) {
    place_.name_ = name;
    arrived_ = true;
    return std::nullopt;
  }

  std::optional<std::string> followLink(const std::string& name) {
    constexpr int linksAtMost = 40;  // as the kernel allows
    std::array<char, 4096> target;   // NOLINT(*-member-init): filled by readlinkat
    const ssize_t length =
        ::readlinkat(place_.folder_.get(), name.c_str(), target.data(), target.size());
    if (++links_ > linksAtMost) errno = ELOOP;
    if (length <= 0 || links_ > linksAtMost) return lastError();
    const std::string_view text(target.data(), static_cast<std::size_t>(length));
    return enterStart(text) ? std::nullopt : std::optional(lastError());
  }

  LogPlace place_;
  std::deque<std::string> rest_;
  int links_ = 0;
  bool keepsLastLink_;
  bool arrived_ = false;
};

std::variant<LogPlace, std::string> LogPlace::find(const std::string& path, LastLink lastLink) {
  return Walk(lastLink).go(path);
}

FileDescriptor LogPlace::open(int flags) const {
  const int following = isDescriptor_ ? 0 : O_NOFOLLOW;
  // Without O_NONBLOCK the run would wait for the reader of a named pipe.
  return FileDescriptor(::openat(folder_.get(), name_.c_str(),
                                 flags | following | O_NONBLOCK | O_CLOEXEC, openToAll));
}

// Use O_CREAT only if there is no file: in a sticky folder the kernel can refuse it, even to root,
// for a file that another user owns (fs.protected_regular).
FileDescriptor LogPlace::openOrMake(int access) const {
  FileDescriptor file = open(access);
  if (!file.isOpen() && errno == ENOENT) {
    file = open(access | O_CREAT | O_EXCL);
    // Override the umask: freshclam writes to the log as another user.
    if (file.isOpen()) ::fchmod(file.get(), openToAll);
  }
  struct stat status = {};
  if (!file.isOpen() || oursAlone_ || ::fstat(file.get(), &status) != 0) return file;
  if (!S_ISREG(status.st_mode) || status.st_nlink <= 1) return file;
  errno = EMLINK;  // another user may have given this name to a file from elsewhere
  return {};
}

bool LogPlace::isStream() const {
  struct stat status = {};
  if (isDescriptor_) return true;
  return ::fstatat(folder_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         !S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode);
}

void LogPlace::remove() const {
  ::unlinkat(folder_.get(), name_.c_str(), 0);
}

}  // namespace tarnwick
