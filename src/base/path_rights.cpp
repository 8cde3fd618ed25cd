#include "base/path_rights.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <system_error>

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;

bool isTrusted(const struct stat& status, uid_t trusted) {
  return status.st_uid == 0 || status.st_uid == trusted;
}

bool isSharedAndSticky(const struct stat& folder) {
  return (folder.st_mode & writableByOthers) != 0 && (folder.st_mode & S_ISVTX) != 0;
}

bool isOpenToExchange(const struct stat& folder, uid_t trusted) {
  const bool shared = (folder.st_mode & writableByOthers) != 0;
  return !isTrusted(folder, trusted) || (shared && !isSharedAndSticky(folder));
}

/// Walks from the root of the file system to the file that a path leads to, name by name, and
/// examines the folder of each name.
class Walk {
 public:
  Walk(const fs::path& path, uid_t trusted) : trusted_(trusted) { goBefore(path); }

  std::vector<fs::path> findings() {
    while (!ahead_.empty() && step()) {
    }
    return std::move(findings_);
  }

 private:
  /// Puts the names of a path before the names that are still ahead.
  void goBefore(const fs::path& path) {
    if (path.is_absolute()) here_ = "/";
    const fs::path names = path.relative_path();
    ahead_.insert(ahead_.begin(), names.begin(), names.end());
  }

  void report(const fs::path& culprit) {
    if (std::ranges::find(findings_, culprit) == findings_.end()) findings_.push_back(culprit);
  }

  /// False if the walk ends: at a name that does not exist, or after too many links.
  bool step() {
    const fs::path name = ahead_.front();
    ahead_.pop_front();
    if (name.empty() || name == ".") return true;
    if (name == "..") {
      here_ = here_.parent_path();
      return true;
    }
    const fs::path next = here_ / name;
    struct stat folder = {};
    struct stat entry = {};
    if (::lstat(here_.c_str(), &folder) != 0 || ::lstat(next.c_str(), &entry) != 0) return false;
    if (isOpenToExchange(folder, trusted_)) report(here_);
    if (isSharedAndSticky(folder) && !isTrusted(entry, trusted_)) report(next);
    if (S_ISLNK(entry.st_mode)) return follow(next);
    here_ = next;
    return true;
  }

  bool follow(const fs::path& link) {
    constexpr int mostLinks = 40;  // the kernel's limit
    std::error_code error;
    const fs::path target = fs::read_symlink(link, error);
    if (error || ++links_ > mostLinks) return false;
    goBefore(target);
    return true;
  }

  uid_t trusted_;
  fs::path here_ = "/";
  std::deque<fs::path> ahead_;
  int links_ = 0;
  std::vector<fs::path> findings_;
};

}  // namespace

bool belongsToRootAlone(const fs::path& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) return false;
  return status.st_uid == 0 && (status.st_mode & writableByOthers) == 0;
}

std::vector<fs::path> whereOthersCanRedirect(const fs::path& path, uid_t trusted) {
  std::error_code ignored;
  return Walk(fs::absolute(path, ignored), trusted).findings();
}

bool othersCanExchangeIn(const fs::path& folder, uid_t trusted) {
  struct stat status = {};
  if (::stat(folder.c_str(), &status) != 0) return true;
  return !S_ISDIR(status.st_mode) || isOpenToExchange(status, trusted);
}

}  // namespace tarnwick
