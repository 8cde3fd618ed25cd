#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <libproc.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/proc.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <type_traits>

#include "platform/platform.hpp"

extern char** environ;

namespace tarnwick::platform {
namespace {

namespace fs = std::filesystem;

struct Release {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};
/// Owns the result of a Core Foundation function with "Create" or "Copy" in its name.
template <typename Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Release>;

/// Null if the bytes are not valid UTF-8.
Owned<CFStringRef> makeString(std::string_view text) {
  return Owned<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

/// Empty if the object is absent or not a string.
std::string textOf(CFTypeRef object) {
  if (object == nullptr || CFGetTypeID(object) != CFStringGetTypeID()) return {};
  const auto string = static_cast<CFStringRef>(object);
  const CFRange whole = CFRangeMake(0, CFStringGetLength(string));
  const CFIndex room = CFStringGetMaximumSizeForEncoding(whole.length, kCFStringEncodingUTF8);
  std::string text(static_cast<std::size_t>(std::max<CFIndex>(room, 0)), '\0');
  CFIndex used = 0;
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, 0, false,
                   reinterpret_cast<UInt8*>(text.data()), room, &used);
  text.resize(static_cast<std::size_t>(used));
  return text;
}

Owned<CFPropertyListRef> parsePropertyList(std::string_view bytes) {
  const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                           reinterpret_cast<const UInt8*>(bytes.data()),
                                           static_cast<CFIndex>(bytes.size())));
  if (!data) return nullptr;
  return Owned<CFPropertyListRef>(CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
}

}  // namespace

std::string operatingSystemVersion() {
  std::ifstream stream("/System/Library/CoreServices/SystemVersion.plist", std::ios::binary);
  std::stringstream content;
  if (stream) content << stream.rdbuf();
  const Owned<CFPropertyListRef> root = parsePropertyList(content.str());
  if (!root || CFGetTypeID(root.get()) != CFDictionaryGetTypeID()) return "unknown";
  const Owned<CFStringRef> key = makeString("ProductVersion");
  const std::string version =
      textOf(CFDictionaryGetValue(static_cast<CFDictionaryRef>(root.get()), key.get()));
  return version.empty() ? "unknown" : version;
}

// macOS gives each user a temporary folder that other users cannot open.
TemporaryDirectory makeTemporaryDirectory() {
  std::array<char, 1024> parent{};  // PATH_MAX here
  const std::size_t length = ::confstr(_CS_DARWIN_USER_TEMP_DIR, parent.data(), parent.size());
  const bool known = length > 0 && length <= parent.size();
  const fs::path usual = fs::path(known ? parent.data() : "/tmp") / "tarnwick";
  if (known && (::mkdir(usual.c_str(), 0700) == 0 || errno == EEXIST)) return {usual, usual};
  std::string spare = "/tmp/tarnwick-XXXXXX";  // a name that other users cannot guess
  if (::mkdtemp(spare.data()) != nullptr) return {spare, spare};
  return {.path = std::nullopt, .shownPath = usual};
}

void releaseTemporaryDirectory(const fs::path& directory) {
  ::rmdir(directory.c_str());
}

// macOS 14.4 deprecates this interface in favour of an asynchronous one with its own queue. A run
// has no event loop, so it needs the synchronous answer.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
bool defaultRouteIsUsable() {
  sockaddr_in anyAddress{};
  anyAddress.sin_len = sizeof anyAddress;
  anyAddress.sin_family = AF_INET;
  const Owned<SCNetworkReachabilityRef> route(SCNetworkReachabilityCreateWithAddress(
      kCFAllocatorDefault, reinterpret_cast<const sockaddr*>(&anyAddress)));
  SCNetworkReachabilityFlags flags = 0;
  if (!route || !SCNetworkReachabilityGetFlags(route.get(), &flags)) return false;
  return (flags & kSCNetworkReachabilityFlagsReachable) != 0 &&
         (flags & kSCNetworkReachabilityFlagsConnectionRequired) == 0;
}
#pragma clang diagnostic pop

int openForLookup(int folder, const char* name, bool followLink) {
  const int following = followLink ? 0 : O_NOFOLLOW;
  return ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | following);
}

// The entries of /dev/fd are devices, not links.
bool holdsDescriptors(int /*folder*/) {
  return false;
}

// The kernel fills the buffer with the newest ids. It runs far fewer processes than fit.
ProcessList::ProcessList() {  // NOLINT(*-member-init): the kernel fills the buffer
  const int bytes =
      ::proc_listpids(PROC_ALL_PIDS, 0, buffer_.data(), static_cast<int>(buffer_.size()));
  if (bytes > 0) end_ = static_cast<std::size_t>(bytes);
}

ProcessList::~ProcessList() = default;

std::optional<pid_t> ProcessList::next() {
  pid_t process = 0;
  while (process == 0) {
    if (end_ - position_ < sizeof process) return std::nullopt;
    std::memcpy(&process, buffer_.data() + position_, sizeof process);
    position_ += sizeof process;
  }
  return process;
}

// The kernel lists the newest processes first and stops when the buffer is full.
std::size_t listProcesses(std::span<pid_t> processes) {
  const int bytes =
      ::proc_listpids(PROC_ALL_PIDS, 0, processes.data(), static_cast<int>(processes.size_bytes()));
  return bytes > 0 ? static_cast<std::size_t>(bytes) / sizeof(pid_t) : 0;
}

std::string_view executablePathOf(pid_t process, std::span<char> buffer) {
  // The kernel refuses a buffer that is larger than this.
  const auto size = std::min<std::size_t>(buffer.size(), PROC_PIDPATHINFO_MAXSIZE);
  const int length = ::proc_pidpath(process, buffer.data(), static_cast<std::uint32_t>(size));
  return length > 0 ? std::string_view(buffer.data(), static_cast<std::size_t>(length))
                    : std::string_view();
}

std::optional<ProcessInfo> processInfoOf(pid_t process) {
  proc_bsdshortinfo known{};
  const int size = ::proc_pidinfo(process, PROC_PIDT_SHORTBSDINFO, 0, &known, sizeof known);
  if (size != static_cast<int>(sizeof known)) return std::nullopt;  // may have ended
  return ProcessInfo{.parent = static_cast<pid_t>(known.pbsi_ppid),
                     .cannotFork = known.pbsi_status == SSTOP || known.pbsi_status == SZOMB};
}

void closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes) {
  short flags = 0;
  posix_spawnattr_getflags(&attributes, &flags);
  posix_spawnattr_setflags(&attributes, static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT));
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addinherit_np(&actions, descriptor);
  }
}

// sigaction(2) lists fork as safe in a handler, and not posix_spawn. But fork runs hooks of the
// system's libraries, which take locks (malloc's for one) that the interrupted code may hold.
// posix_spawn is one system call and runs no hook.
pid_t spawnShellInSignalHandler(const char* commandLine, const posix_spawnattr_t& attributes) {
  std::array<char, 3> shell{"sh"};
  std::array<char, 3> option{"-c"};
  const std::array<char*, 4> arguments{shell.data(), option.data(), const_cast<char*>(commandLine),
                                       nullptr};
  pid_t child = 0;
  const int error =
      ::posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments.data(), environ);
  return error == 0 ? child : -1;
}

namespace {

/// The keys stored for a domain; null if the domain does not exist.
Owned<CFArrayRef> keysOf(CFStringRef domain) {
  return Owned<CFArrayRef>(
      CFPreferencesCopyKeyList(domain, kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
}

CFStringRef keyAt(const Owned<CFArrayRef>& keys, CFIndex index) {
  return static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), index));
}

/// An absent value removes the key.
void setValue(CFStringRef domain, CFStringRef key, CFStringRef value) {
  CFPreferencesSetValue(key, value, domain, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
}

}  // namespace

std::optional<Preferences> readPreferences(std::string_view domain) {
  const Owned<CFStringRef> name = makeString(domain);
  const Owned<CFArrayRef> keys = keysOf(name.get());
  if (!keys) return std::nullopt;
  Preferences values;
  for (CFIndex i = 0; i < CFArrayGetCount(keys.get()); ++i) {
    const Owned<CFPropertyListRef> value(CFPreferencesCopyValue(
        keyAt(keys, i), name.get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
    if (!value || CFGetTypeID(value.get()) != CFStringGetTypeID()) continue;
    values.insert_or_assign(textOf(keyAt(keys, i)), textOf(value.get()));
  }
  return values;
}

std::optional<FileFailure> replacePreferences(std::string_view domain, const Preferences& values) {
  const Owned<CFStringRef> name = makeString(domain);
  const Owned<CFArrayRef> oldKeys = keysOf(name.get());
  const CFIndex oldCount = oldKeys ? CFArrayGetCount(oldKeys.get()) : 0;
  for (CFIndex i = 0; i < oldCount; ++i) setValue(name.get(), keyAt(oldKeys, i), nullptr);
  for (const auto& [key, value] : values) {
    const Owned<CFStringRef> storedKey = makeString(key);
    const Owned<CFStringRef> storedValue = makeString(value);
    if (storedKey) setValue(name.get(), storedKey.get(), storedValue.get());
  }
  // The function does not report the reason of a failure.
  if (CFPreferencesSynchronize(name.get(), kCFPreferencesCurrentUser, kCFPreferencesAnyHost) != 0) {
    return std::nullopt;
  }
  return FileFailure{.path = domain, .error = EIO};
}

namespace {

std::string formatted(CFDateFormatterRef format, CFAbsoluteTime moment) {
  const Owned<CFStringRef> text(
      CFDateFormatterCreateStringWithAbsoluteTime(kCFAllocatorDefault, format, moment));
  return textOf(text.get());
}

}  // namespace

std::string formatDate(double secondsSince1970, std::string_view pattern, TimeZone zone) {
  const Owned<CFStringRef> localeName = makeString("en_US_POSIX");
  const Owned<CFLocaleRef> locale(CFLocaleCreate(kCFAllocatorDefault, localeName.get()));
  const Owned<CFDateFormatterRef> format(CFDateFormatterCreate(
      kCFAllocatorDefault, locale.get(), kCFDateFormatterNoStyle, kCFDateFormatterNoStyle));
  const Owned<CFStringRef> wanted = makeString(pattern);
  if (!format || !wanted) return {};
  CFDateFormatterSetFormat(format.get(), wanted.get());
  if (zone == TimeZone::gmt) {  // a new formatter has the local zone
    const Owned<CFTimeZoneRef> gmt(CFTimeZoneCreateWithTimeIntervalFromGMT(kCFAllocatorDefault, 0));
    CFDateFormatterSetProperty(format.get(), kCFDateFormatterTimeZone, gmt.get());
  }
  return formatted(format.get(), secondsSince1970 - kCFAbsoluteTimeIntervalSince1970);
}

std::string currentDateAndTime() {
  const Owned<CFLocaleRef> locale(CFLocaleCopyCurrent());
  const Owned<CFDateFormatterRef> format(CFDateFormatterCreate(
      kCFAllocatorDefault, locale.get(), kCFDateFormatterMediumStyle, kCFDateFormatterMediumStyle));
  return format ? formatted(format.get(), CFAbsoluteTimeGetCurrent()) : std::string();
}

std::string unzipCommand(const fs::path& archive, const fs::path& directory) {
  return fmt::format("ditto -xk {} {}", archive.string(), directory.string());
}

// macOS has no program that drops its groups and then changes its user.
std::string commandToBecome(std::string_view /*user*/, std::string_view /*group*/) {
  return {};
}

}  // namespace tarnwick::platform
