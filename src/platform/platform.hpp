#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/file_failure.hpp"

/// Everything in which operating systems differ. CMake chooses the files that implement it.
namespace tarnwick::platform {

/// The version of the operating system, such as "12"; "unknown" if the system does not name one.
[[nodiscard]] std::string operatingSystemVersion();

/// The folder for this run's temporary files. Other users cannot open it. The next run finds it
/// again, so that it can delete what a killed run left there.
struct TemporaryDirectory {
  /// None if no such folder could be made. There is no fallback: another user may control a folder
  /// that was there already.
  std::optional<std::filesystem::path> path;
  /// For messages only: the path, or the one at which the folder could not be made.
  std::filesystem::path shownPath;
  /// Why the folder is not in the one that the environment names; none if it is, or if the
  /// environment names no other.
  std::optional<std::string> whyNotAsAsked = {};
};
[[nodiscard]] TemporaryDirectory makeTemporaryDirectory();

/// Removes a folder that makeTemporaryDirectory made, if it is empty.
void releaseTemporaryDirectory(const std::filesystem::path& directory);

/// Whether the machine has a default route that needs no further step to be used. Sends nothing.
[[nodiscard]] bool defaultRouteIsUsable();

/// Opens a folder only to look up names in it. Follows a link at the end of `name` only if told to.
/// Returns a descriptor that the caller must close, or -1 on failure, with errno set.
[[nodiscard]] int openForLookup(int folder, const char* name, bool followLink = false);

/// Whether the links in this folder refer to open files, so that only the kernel can follow them.
[[nodiscard]] bool holdsDescriptors(int folder);

/// Lists the ids of all processes once. Safe in a signal handler.
class ProcessList {
 public:
  ProcessList();
  ProcessList(const ProcessList&) = delete;
  ProcessList& operator=(const ProcessList&) = delete;
  ~ProcessList();

  /// None at the end, and if the system does not list its processes.
  [[nodiscard]] std::optional<pid_t> next();

 private:
  [[maybe_unused]] int folder_ = -1;  ///< for systems that list processes as files
  std::size_t position_ = 0;
  std::size_t end_ = 0;
  alignas(8) std::array<char, 65536> buffer_;  // NOLINT(*-member-init): filled by the system
};

/// Fills `processes` with the ids of running processes and returns their number. Omits the oldest
/// if there are more than fit. Safe in a signal handler.
[[nodiscard]] std::size_t listProcesses(std::span<pid_t> processes);

/// The path of the file that a process executes, stored in `buffer`, which must outlive the result.
/// Only the file's name if the system hides the path of another user's process; empty if the system
/// gives neither. Safe in a signal handler.
[[nodiscard]] std::string_view executablePathOf(pid_t process, std::span<char> buffer);

struct ProcessInfo {
  pid_t parent = 0;
  bool cannotFork = false;  ///< because it is stopped or has ended
};

/// None if there is no such process. Safe in a signal handler.
[[nodiscard]] std::optional<ProcessInfo> processInfoOf(pid_t process);

/// Makes a child inherit only the descriptors 0, 1 and 2; libraries open some that are not
/// close-on-exec. Call it after every other change of `actions` and `attributes`.
void closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes);

/// Starts a command line in the system shell, with the signal dispositions and the mask of
/// `attributes`. Returns the child's id, which the caller must reap, or -1. Safe in a signal
/// handler, whatever code the signal interrupted.
[[nodiscard]] pid_t spawnShellInSignalHandler(const char* commandLine,
                                              const posix_spawnattr_t& attributes);

/// The values of a preferences domain, by key. A domain belongs to the user who runs the program.
using Preferences = std::map<std::string, std::string, std::less<>>;

/// The values stored for a domain. None if the domain does not exist; empty if it cannot be read.
[[nodiscard]] std::optional<Preferences> readPreferences(std::string_view domain);

/// Replaces a whole domain and syncs it to the disk. Returns none on success.
[[nodiscard]] std::optional<FileFailure> replacePreferences(std::string_view domain,
                                                            const Preferences& values);

enum class TimeZone { local, gmt };

/// Formats a moment by a Unicode date pattern, in the locale "en_US_POSIX". Empty on failure.
[[nodiscard]] std::string formatDate(double secondsSince1970, std::string_view pattern,
                                     TimeZone zone);

/// The current date and time, both in the medium style of the user's locale. Empty on failure.
[[nodiscard]] std::string currentDateAndTime();

/// The command that edits a file in place without keeping a copy. The caller appends a blank, the
/// quoted script, a blank and the file.
[[nodiscard]] std::string_view inPlaceEditCommand();

enum class EditsOutcome { allSucceeded, someFailed };

/// Call these before and after such commands on a file, so that the temporary files of a killed
/// command can be distinguished from files of other users. After a failure endInPlaceEdits removes
/// those temporary files.
void beginInPlaceEdits(const std::filesystem::path& file);
void endInPlaceEdits(const std::filesystem::path& file, EditsOutcome outcome);

/// Removes the temporary files that killed edits of this file left. Keeps every file that may have
/// another origin.
void removeUnfinishedEdits(const std::filesystem::path& file);

/// The shell command that unpacks a zip archive into a folder and overwrites files there. It exits
/// with 0 if it unpacked every member.
[[nodiscard]] std::string unzipCommand(const std::filesystem::path& archive,
                                       const std::filesystem::path& directory);

/// The prefix of a shell command that runs the rest with the rights of this user and this group
/// only; it ends in a blank. Empty if the system has no program for that, or if this process may
/// not change its user.
[[nodiscard]] std::string commandToBecome(std::string_view user, std::string_view group);

/// Whether the scanning engine at this path is the file that its maker or an administrator
/// installed. False if it does not exist.
[[nodiscard]] bool engineSignatureIsSound(const std::filesystem::path& engine);

}  // namespace tarnwick::platform
