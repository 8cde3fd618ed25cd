#include "publisher/owner.hpp"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>

#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// What the system knows of a user; none for a number without a name. There is one thread yet.
std::optional<passwd> entryOf(uid_t user) {
  const passwd* const entry = ::getpwuid(user);  // NOLINT(concurrency-mt-unsafe)
  return entry != nullptr ? std::optional(*entry) : std::nullopt;
}

bool canOthersWrite(const struct stat& status) {
  if ((status.st_mode & S_ISVTX) != 0) return false;
  return (status.st_mode & S_IWOTH) != 0 || ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0);
}

/// Root trusts a path of which nobody but root and the owner could exchange a part. `home` has no
/// links in it.
void refuseWhatOthersCouldExchange(const fs::path& home, uid_t owner) {
  for (fs::path path = home;; path = path.parent_path()) {
    struct stat status = {};
    const bool known = ::lstat(path.c_str(), &status) == 0;
    const bool theirs = known && (status.st_uid == 0 || status.st_uid == owner);
    if (!theirs || canOthersWrite(status)) {
      refuse(fmt::format("{} can be written by others than {}, who could exchange the home under "
                         "root's hands",
                         path.string(), userName(owner)),
             fmt::format("let {} alone write there, or publish as {}", userName(owner),
                         userName(owner)));
    }
    if (path == path.root_path()) return;
  }
}

/// The signals that root may send to the process that it sees.
sigset_t passedOn() {
  sigset_t signals{};
  sigemptyset(&signals);
  for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGQUIT, SIGHUP}) {
    sigaddset(&signals, number);
  }
  return signals;
}

/// Waits for the process that works, hands on signals to it, and ends as it did.
[[noreturn]] void waitFor(pid_t child, const sigset_t& signals) {
  constexpr int killed = 128;
  for (;;) {
    int number = 0;
    ::sigwait(&signals, &number);
    if (number != SIGCHLD) {
      ::kill(child, number);
      continue;
    }
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) != child) continue;
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : killed + WTERMSIG(status));
  }
}

void continueInNewSession() {
  const sigset_t signals = passedOn();
  sigset_t before{};
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  const pid_t child = ::fork();
  if (child < 0) refuse("no process can be started");
  if (child > 0) waitFor(child, signals);
  ::setsid();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void become(uid_t owner, gid_t folderGroup) {
  const std::optional<passwd> entry = entryOf(owner);
  const gid_t group = entry ? entry->pw_gid : folderGroup;
  const int grouped = entry ? ::initgroups(entry->pw_name, group) : ::setgroups(0, nullptr);
  if (grouped != 0 || ::setgid(group) != 0 || ::setuid(owner) != 0 || ::setuid(0) == 0) {
    refuse(fmt::format("root cannot become {}, whose home this is", userName(owner)));
  }
}

void stepDownTo(const struct stat& theirs) {
  continueInNewSession();
  // Root may stand where the owner cannot be.
  if (::chdir("/") != 0) refuse("/ cannot be entered");
  become(theirs.st_uid, theirs.st_gid);
}

fs::path lastOnTheWay(const fs::path& home) {
  fs::path reached;
  for (const fs::path& part : fs::absolute(home).lexically_normal()) {
    struct stat status = {};
    const fs::path next = reached / part;
    if (::lstat(next.c_str(), &status) != 0) break;
    reached = next;
    if (S_ISLNK(status.st_mode) && status.st_uid != 0) break;
  }
  return reached;
}

}  // namespace

std::string userName(uid_t user) {
  const std::optional<passwd> entry = entryOf(user);
  return entry ? entry->pw_name : std::to_string(user);
}

std::string ownName() {
  return userName(::geteuid());
}

void stepDownToOwner(const fs::path& home, Access access) {
  struct stat status = {};
  // Whoever can make the folder could do so from now on, and put links into it.
  if (::lstat(home.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return stepDownToMaker(home);
  if (::geteuid() == 0) refuseWhatOthersCouldExchange(home, status.st_uid);
  if (::geteuid() == status.st_uid) return;
  if (::geteuid() == 0) return stepDownTo(status);
  if (access == Access::reader) return;
  refuse(fmt::format("{} belongs to {}; only its owner can publish", home.string(),
                     userName(status.st_uid)));
}

void stepDownToMaker(const fs::path& home) {
  if (::geteuid() != 0) return;
  const fs::path last = lastOnTheWay(home);
  struct stat status = {};
  if (::lstat(last.c_str(), &status) != 0) return;
  if (status.st_uid != 0) return stepDownTo(status);
  std::error_code ignored;
  refuseWhatOthersCouldExchange(fs::weakly_canonical(last, ignored), 0);
}

}  // namespace tarnwick::publisher
