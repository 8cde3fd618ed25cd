#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/magic.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "base/file_descriptor.hpp"
#include "platform/os_release.hpp"
#include "platform/platform.hpp"
#include "platform/process_stat.hpp"
#include "platform/property_list.hpp"

namespace tarnwick::platform {

namespace fs = std::filesystem;

std::string operatingSystemVersion() {
  // An administrator can create this file to choose the version that the servers see.
  constexpr auto systemVersion = "/System/Library/CoreServices/SystemVersion.plist";
  const std::ifstream stream(systemVersion);
  if (stream) {
    std::stringstream content;
    content << stream.rdbuf();
    const Preferences values = parsePropertyList(content.str());
    const auto found = values.find("ProductVersion");
    if (found != values.end()) return found->second;
  }
  std::ifstream release("/etc/os-release");
  return versionInRelease(release);
}

namespace {

constexpr unsigned routeUp = 0x0001;
constexpr unsigned routeReject = 0x0200;

bool usable(unsigned flags) {
  return (flags & routeUp) != 0 && (flags & routeReject) == 0;
}

/// Columns: interface, destination, gateway, flags, use counts, metric, mask, ...
bool hasInternet4DefaultRoute() {
  std::ifstream table("/proc/net/route");
  std::string line;
  std::getline(table, line);  // the column titles
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string interface, destination, gateway, references, uses, metric, mask;
    unsigned flags = 0;
    columns >> interface >> destination >> gateway >> std::hex >> flags >> references >> uses >>
        metric >> mask;
    const bool isDefault = destination == "00000000" && mask == "00000000";
    const bool leadsSomewhere = interface != "*";  // only this marks a blackhole route
    if (columns && isDefault && leadsSomewhere && usable(flags)) return true;
  }
  return false;
}

/// Columns: destination, its prefix length, source, its prefix length, next hop, metric, ...
bool hasInternet6DefaultRoute() {
  std::ifstream table("/proc/net/ipv6_route");
  for (std::string line; std::getline(table, line);) {
    std::istringstream columns(line);
    std::string destination, length, source, sourceLength, hop, metric, references, uses;
    unsigned flags = 0;
    columns >> destination >> length >> source >> sourceLength >> hop >> metric >> references >>
        uses >> std::hex >> flags;
    const bool isDefault = destination == std::string(32, '0') && length == "00";
    if (columns && isDefault && usable(flags)) return true;
  }
  return false;
}

}  // namespace

bool defaultRouteIsUsable() {
  return hasInternet4DefaultRoute() || hasInternet6DefaultRoute();
}

int openForLookup(int folder, const char* name, bool followLink) {
  const int following = followLink ? 0 : O_NOFOLLOW;
  return ::openat(folder, name, O_PATH | O_DIRECTORY | O_CLOEXEC | following);
}

bool holdsDescriptors(int folder) {
  struct statfs status = {};
  return ::fstatfs(folder, &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

namespace {

/// What the kernel writes for each entry of a folder. The C library's own reader allocates
/// memory, which a signal handler must not.
struct DirectoryEntry {
  std::uint64_t inode;
  std::int64_t offset;
  std::uint16_t length;
  std::uint8_t type;
  std::array<char, 1> name;  ///< of any length, with a null at its end
};

/// 0 if the name is not a process id.
pid_t processNamed(const char* name) {
  pid_t process = 0;
  const char* const end = name + std::strlen(name);
  const auto result = std::from_chars(name, end, process);
  return result.ptr == end ? process : 0;
}

/// Appends a process; if there is no room, drops the oldest, which is the first because the kernel
/// lists ids in ascending order.
void keepNewest(std::span<pid_t> processes, std::size_t& count, pid_t process) {
  if (processes.empty()) return;
  if (count == processes.size()) {
    std::shift_left(processes.begin(), processes.end(), 1);
    --count;
  }
  processes[count++] = process;
}

}  // namespace

ProcessList::ProcessList()  // NOLINT(*-member-init): next fills the buffer
    : folder_(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

ProcessList::~ProcessList() {
  if (folder_ >= 0) ::close(folder_);
}

std::optional<pid_t> ProcessList::next() {
  if (folder_ < 0) return std::nullopt;
  for (;;) {
    if (position_ == end_) {
      const long filled = ::syscall(SYS_getdents64, folder_, buffer_.data(), buffer_.size());
      if (filled <= 0) return std::nullopt;
      position_ = 0;
      end_ = static_cast<std::size_t>(filled);
    }
    const char* const start = buffer_.data() + position_;
    std::uint16_t length = 0;
    std::memcpy(&length, start + offsetof(DirectoryEntry, length), sizeof length);
    position_ += length;
    const pid_t process = processNamed(start + offsetof(DirectoryEntry, name));
    if (process > 0) return process;
  }
}

std::size_t listProcesses(std::span<pid_t> processes) {
  std::size_t count = 0;
  ProcessList all;
  while (const std::optional<pid_t> process = all.next()) keepNewest(processes, count, *process);
  return count;
}

namespace {

/// The path of a file in a process's folder in /proc. `name` begins with a slash.
std::array<char, 32> pathInProc(pid_t process, std::string_view name) {
  std::array<char, 32> path{"/proc/"};
  char* const digits = path.data() + std::strlen(path.data());
  const auto end = std::to_chars(digits, path.data() + path.size() - name.size() - 1, process);
  std::ranges::copy(name, end.ptr);
  return path;
}

/// The beginning of that file, up to the size of the buffer; empty if it cannot be read.
std::string_view readProcFile(pid_t process, std::string_view name, std::span<char> buffer) {
  const FileDescriptor file(::open(pathInProc(process, name).data(), O_RDONLY | O_CLOEXEC));
  const ssize_t length = file.isOpen() ? readSome(file.get(), buffer) : 0;
  return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

}  // namespace

std::string_view executablePathOf(pid_t process, std::span<char> buffer) {
  const ssize_t length =
      ::readlink(pathInProc(process, "/exe").data(), buffer.data(), buffer.size());
  if (length > 0) return {buffer.data(), static_cast<std::size_t>(length)};
  // Only a user who may trace the process can read the link; every user can read the name.
  return errno == EACCES ? readProcFile(process, "/comm", buffer) : std::string_view();
}

std::optional<ProcessInfo> processInfoOf(pid_t process) {
  std::array<char, 256> buffer;  // NOLINT(*-member-init): read fills it
  return infoInStat(readProcFile(process, "/stat", buffer));
}

void closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& /*attributes*/) {
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

namespace {

[[noreturn]] void becomeShell(const char* commandLine, const posix_spawnattr_t& attributes) {
  sigset_t reset{};
  sigset_t mask{};
  posix_spawnattr_getsigdefault(&attributes, &reset);
  posix_spawnattr_getsigmask(&attributes, &mask);
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) {
    if (sigismember(&reset, number) == 1) ::sigaction(number, &standard, nullptr);
  }
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  ::execl("/bin/sh", "sh", "-c", commandLine, static_cast<char*>(nullptr));
  ::_exit(127);
}

}  // namespace

// posix_spawn is not specified as safe in a signal handler, and fork takes locks that the
// interrupted code may hold. _Fork takes no lock.
pid_t spawnShellInSignalHandler(const char* commandLine, const posix_spawnattr_t& attributes) {
  const pid_t child = ::_Fork();
  if (child == 0) becomeShell(commandLine, attributes);
  return child;
}

std::string unzipCommand(const fs::path& archive, const fs::path& directory) {
  // On a full disk unzip asks whether to continue; /dev/null gives no answer.
  return fmt::format("unzip -o -q {} -d {} </dev/null", archive.string(), directory.string());
}

std::string commandToBecome(std::string_view user, std::string_view group) {
  constexpr auto program = "/usr/bin/setpriv";
  if (::geteuid() != 0 || ::access(program, X_OK) != 0) return {};
  return fmt::format("{} --reuid={} --regid={} --clear-groups ", program, user, group);
}

}  // namespace tarnwick::platform
