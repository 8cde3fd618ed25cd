#include "publisher/disk.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "base/disk_sync.hpp"
#include "base/file_descriptor.hpp"
#include "base/file_tree.hpp"
#include "base/text_rules.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void giveUp(const fs::path& path) {
  throw std::system_error(errno, std::generic_category(), path.string());
}

void require(bool done, const fs::path& path) {
  if (!done) giveUp(path);
}

FileDescriptor openForReading(const fs::path& file, Follow follow) {
  // A named pipe in the file's place must not make anybody wait.
  const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | (follow == Follow::no ? O_NOFOLLOW : 0);
  FileDescriptor opened(::open(file.c_str(), flags));
  struct stat status = {};
  const bool plain =
      opened.isOpen() && ::fstat(opened.get(), &status) == 0 && S_ISREG(status.st_mode);
  return plain ? std::move(opened) : FileDescriptor();
}

FileDescriptor writeNew(const fs::path& file, std::string_view content, mode_t mode) {
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor opened(::open(file.c_str(), flags, mode));
  require(opened.isOpen(), file);
  require(writeFully(opened.get(), content), file);
  return opened;
}

}  // namespace

std::optional<std::string> contentOf(const fs::path& file, std::uintmax_t limit) {
  return contentOf(file, Follow::yes, limit);
}

std::optional<std::string> contentOf(const fs::path& file, Follow follow, std::uintmax_t limit) {
  const FileDescriptor opened = openForReading(file, follow);
  if (!opened.isOpen()) return std::nullopt;
  std::string content;
  std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by read
  for (;;) {
    const ssize_t count = readSome(opened.get(), buffer);
    if (count < 0) return std::nullopt;
    if (count == 0) return content;
    content.append(buffer.data(), static_cast<std::size_t>(count));
    if (content.size() > limit) return std::nullopt;
  }
}

std::string targetOf(const fs::path& link) {
  std::error_code none;
  return fs::read_symlink(link, none).string();
}

std::int64_t numberBehind(const fs::path& link) {
  constexpr std::size_t mostDigits = 18;
  const std::string name = fs::path(targetOf(link)).filename();
  const bool number = !name.empty() && name.size() <= mostDigits && name.front() != '0' &&
                      name.find_first_not_of("0123456789") == std::string::npos;
  return number ? parseInteger(name) : 0;
}

bool isThere(const fs::path& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool isFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

bool isFolder(const fs::path& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

bool isLink(const fs::path& path) {
  std::error_code ignored;
  return fs::is_symlink(fs::symlink_status(path, ignored));
}

std::uintmax_t sizeOf(const fs::path& file) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(file, error);
  return error ? 0 : size;
}

std::time_t dateOf(const fs::path& file) {
  struct stat status = {};
  return ::stat(file.c_str(), &status) == 0 ? status.st_mtime : 0;
}

std::vector<fs::path> entriesOf(const fs::path& folder) {
  std::vector<std::string> names = namesIn(folder).value_or(std::vector<std::string>{});
  std::ranges::sort(names);
  std::vector<fs::path> entries;
  for (const std::string& name : names) {
    if (!name.starts_with('.')) entries.push_back(folder / name);
  }
  return entries;
}

void write(const fs::path& file, std::string_view content, mode_t mode) {
  writeNew(file, content, mode);
}

void writeSynced(const fs::path& file, std::string_view content, mode_t mode) {
  const FileDescriptor opened = writeNew(file, content, mode);
  require(syncToDisk(opened.get()), file);
}

void copySynced(const fs::path& from, const fs::path& to) {
  const std::optional<std::string> content = contentOf(from);
  require(content.has_value(), from);
  writeSynced(to, *content);
}

void syncPath(const fs::path& path) {
  const FileDescriptor opened(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  require(opened.isOpen() && syncToDisk(opened.get()), path);
}

void moveOver(const fs::path& from, const fs::path& to) {
  require(::rename(from.c_str(), to.c_str()) == 0, to);
}

void makeFolder(const fs::path& folder, mode_t mode) {
  require(::mkdir(folder.c_str(), mode) == 0, folder);
}

void makeFolders(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw std::system_error(error, folder.string());
}

void removeFile(const fs::path& file) {
  require(::unlink(file.c_str()) == 0 || errno == ENOENT, file);
}

void makeLink(const std::string& target, const fs::path& link) {
  require(::symlink(target.c_str(), link.c_str()) == 0, link);
}

void placeLink(const std::string& target, const fs::path& link, const fs::path& spare) {
  makeLink(target, spare);
  moveOver(spare, link);
}

void switchLink(const std::string& target, const fs::path& link, const fs::path& spare) {
  syncPath(link.parent_path());
  syncPath((link.parent_path() / target).parent_path());
  placeLink(target, link, spare);
  syncPath(link.parent_path());
}

void dateAfter(const fs::path& newFolder, const fs::path& published) {
  time_t first = 0;
  time_t last = 0;
  for (const fs::path& file : entriesOf(newFolder)) {
    first = first == 0 ? dateOf(file) : std::min(first, dateOf(file));
  }
  for (const fs::path& file : entriesOf(published)) last = std::max(last, dateOf(file));
  if (first > last) return;
  const std::array<timespec, 2> later{timespec{last + 1, 0}, timespec{last + 1, 0}};
  for (const fs::path& file : entriesOf(newFolder)) {
    require(::utimensat(AT_FDCWD, file.c_str(), later.data(), 0) == 0, file);
  }
}

void sweepOthers(const fs::path& parent, const fs::path& link) {
  const std::string kept = fs::path(targetOf(link)).filename();
  for (const fs::path& entry : entriesOf(parent)) {
    if (entry.filename() != kept) removeTree(entry);
  }
}

bool diskIsFull(const fs::path& path) {
  constexpr std::uintmax_t tooLittle = 256U << 10U;
  struct statvfs space = {};
  return ::statvfs(path.c_str(), &space) == 0 &&
         static_cast<std::uintmax_t>(space.f_bavail) * space.f_frsize < tooLittle;
}

}  // namespace tarnwick::publisher
