#include "driver/log_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "base/file_descriptor.hpp"

namespace tarnwick {

namespace {

constexpr mode_t openToAll = 0666;

/// A log that is made here is open to all at once: `freshclam` writes to it as a user of its own.
FileDescriptor openOrMake(const std::string& path) {
  // A named pipe without a reader would keep the run waiting.
  const int following = othersCanPlaceLink(path) ? O_NOFOLLOW : 0;
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC | following;
  FileDescriptor made(::open(path.c_str(), flags | O_EXCL, openToAll));
  if (!made.isOpen()) return FileDescriptor(::open(path.c_str(), flags, openToAll));
  ::fchmod(made.get(), openToAll);
  return made;
}

}  // namespace

bool othersCanPlaceLink(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  struct stat status = {};
  if (::stat(folder.empty() ? "." : folder.c_str(), &status) != 0) return false;
  const bool ours = status.st_uid == 0 || status.st_uid == ::geteuid();
  const bool shared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return !ours || (shared && (status.st_mode & S_ISVTX) == 0);
}

void openLogToAll(const std::string& path) {
  const FileDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, openToAll));
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return;
  ::futimens(file.get(), nullptr);
  ::fchmod(file.get(), (status.st_mode & 07777) | openToAll);
}

void LogFile::open(const std::string& path) {
  close();
  FileDescriptor file = openOrMake(path);
  struct stat status = {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return;
  // A pipe stays as it is, so that append can tell when it is full.
  if (!S_ISFIFO(status.st_mode)) ::fcntl(file.get(), F_SETFL, O_APPEND);
  descriptor_ = file.release();
}

void LogFile::append(std::string_view line) const {
  constexpr int patience = 200;  // milliseconds
  const int descriptor = descriptor_;
  if (descriptor >= 0) writeFully(descriptor, line, patience);
}

void LogFile::close() {
  // Forgotten first: the signal handler must never write to a number that means another file.
  const int descriptor = descriptor_.exchange(-1);
  if (descriptor >= 0) ::close(descriptor);
}

}  // namespace tarnwick
