#include "driver/log_file.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "base/platform_log.hpp"
#include "driver/commands.hpp"
#include "driver/log_place.hpp"

namespace tarnwick {
namespace {

enum class LogOwner { unchanged, clamav };

/// Makes a log readable and writable for every user, and creates it if it does not exist. Runs
/// commands on the path if only root can change where it leads; otherwise works on the open file.
void giveLogToAll(const std::string& path, LogOwner owner) {
  const auto found = LogPlace::find(path);
  const auto* const place = std::get_if<LogPlace>(&found);
  if (place == nullptr) return;
  if (place->isOursAlone()) {
    runShellCommand(fmt::format("touch {}", path));
    if (owner == LogOwner::clamav) runShellCommand(fmt::format("chown clamav:clamav {}", path));
    runShellCommand(fmt::format("chmod a+rw {}", path));
    return;
  }
  const FileDescriptor file = place->openOrMake(O_RDONLY);
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return;
  ::futimens(file.get(), nullptr);
  ::fchmod(file.get(), (status.st_mode & 07777) | 0666);
  if (owner != LogOwner::clamav) return;
  // NOLINTBEGIN(concurrency-mt-unsafe): no other thread looks up users
  const passwd* const user = ::getpwnam("clamav");
  const group* const members = ::getgrnam("clamav");
  // NOLINTEND(concurrency-mt-unsafe)
  if (user == nullptr || members == nullptr) return;
  [[maybe_unused]] const int owned = ::fchown(file.get(), user->pw_uid, members->gr_gid);
}

void removeLog(const std::string& path) {
  const auto found = LogPlace::find(path, LogPlace::LastLink::kept);
  if (const auto* const place = std::get_if<LogPlace>(&found)) place->remove();
}

bool isStream(const std::string& path) {
  const auto found = LogPlace::find(path);
  const auto* const place = std::get_if<LogPlace>(&found);
  return place != nullptr && place->isStream();
}

}  // namespace

void beginLogAnew(const std::string& path) {
  removeLog(path);
  giveLogToAll(path, LogOwner::clamav);
}

void LogFile::open(const std::string& path) {
  close();
  path_ = path;
  failureIsReported_ = false;
  takeBack();
}

void LogFile::append(std::string_view line) const {
  constexpr int patience = 200;  // milliseconds
  const int descriptor = descriptor_;
  if (descriptor >= 0) static_cast<void>(writeFully(descriptor, line, patience));
}

void LogFile::handOver() {
  // Clear it before closing: the signal handler must not write to a number that was reused for
  // another file.
  descriptor_ = -1;
  if (isRegular_) file_.reset();
}

void LogFile::takeBack() {
  if (!path_) return;
  const std::string failure = file_.isOpen() ? std::string() : reopen();
  descriptor_ = file_.get();
  if (failure.empty() || failureIsReported_) return;
  failureIsReported_ = true;
  platformLog(fmt::format("The log {} is not written: {}", *path_, failure));
}

/// Returns the reason of a failure; empty on success.
std::string LogFile::reopen() {
  const auto found = LogPlace::find(*path_);
  if (const auto* const refusal = std::get_if<std::string>(&found)) return *refusal;
  FileDescriptor file = std::get<LogPlace>(found).openOrMake(O_WRONLY | O_APPEND);
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
    return std::error_code(errno, std::generic_category()).message();
  }
  isRegular_ = S_ISREG(status.st_mode);
  // A pipe stays non-blocking, so that append notices when it is full.
  if (!S_ISFIFO(status.st_mode)) ::fcntl(file.get(), F_SETFL, O_APPEND);
  file_ = std::move(file);
  return {};
}

void LogFile::beginAnew() {
  if (!path_) return;
  handOver();
  if (isStream(*path_)) {
    giveLogToAll(*path_, LogOwner::clamav);
  } else {
    beginLogAnew(*path_);
  }
  takeBack();
}

void LogFile::giveToAll() const {
  if (path_) giveLogToAll(*path_, LogOwner::unchanged);
}

void LogFile::close() {
  descriptor_ = -1;
  file_.reset();
}

}  // namespace tarnwick
