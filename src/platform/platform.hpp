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

/// Everything in which operating systems differ. CMake picks the file that carries it out.
namespace tarnwick::platform {

/// The version that the system's vendor gives it, such as "12"; "unknown" when it says none.
std::string operatingSystemVersion();

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

/// Whether a default route exists that can be used as it stands. Sends nothing.
bool defaultRouteIsUsable();

/// Opens a folder only to look names up in it; -1 on failure. Follows a link in the last place only
/// if told to.
int openForLookup(int folder, const char* name, bool followLink = false);

/// Whether the links in this folder stand for open files, so that only the kernel can follow them.
bool holdsDescriptors(int folder);

/// Goes through the ids of all processes once. Safe in a signal handler.
class ProcessList {
 public:
  ProcessList();
  ProcessList(const ProcessList&) = delete;
  ProcessList& operator=(const ProcessList&) = delete;
  ~ProcessList();

  /// None at the end, and where the system lists no processes.
  std::optional<pid_t> next();

 private:
  [[maybe_unused]] int folder_ = -1;  ///< on systems that list processes as files
  std::size_t position_ = 0;
  std::size_t end_ = 0;
  alignas(8) std::array<char, 65536> buffer_;  // NOLINT(*-member-init): filled by the system
};

/// Fills `processes` with the ids of running processes and returns how many these are. Where there
/// are more than fit, the oldest are left out. Safe in a signal handler.
std::size_t listProcesses(std::span<pid_t> processes);

/// The path of what a process executes, written to `buffer`. Only its name where the system keeps
/// the path of another user's process from us; empty when it cannot be told. Safe in a signal
/// handler.
std::string_view executablePathOf(pid_t process, std::span<char> buffer);

/// What is known of a process.
struct ProcessInfo {
  pid_t parent = 0;
  bool cannotFork = false;  ///< stopped or ended: it starts no process
};

/// None when there is no such process. Safe in a signal handler.
std::optional<ProcessInfo> processInfoOf(pid_t process);

/// Lets a program that is about to be spawned inherit nothing but descriptors 0, 1 and 2. Libraries
/// open some that do not close by themselves. To be called when all else has been set.
void closeOtherDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes);

/// Starts a command line in the system shell, with the dispositions and the mask that `attributes`
/// hold. The child's id, or -1. Safe in a signal handler, whatever the signal interrupted.
pid_t spawnShellInSignalHandler(const char* commandLine, const posix_spawnattr_t& attributes);

/// A preferences domain: texts by key, owned by the user who runs the program.
using Preferences = std::map<std::string, std::string, std::less<>>;

/// The values stored for a domain. None when no such domain exists; a domain that cannot be read
/// holds no values.
std::optional<Preferences> readPreferences(std::string_view domain);

/// Replaces a domain whole, on the disk too. None on success.
[[nodiscard]] std::optional<FileFailure> replacePreferences(std::string_view domain,
                                                            const Preferences& values);

enum class TimeZone { local, gmt };

/// A moment, in seconds since 1970 UTC, by a Unicode date pattern in the locale "en_US_POSIX".
std::string formatDate(double secondsSince1970, std::string_view pattern, TimeZone zone);

/// The present date and time, both in the medium style of the user's locale.
std::string currentDateAndTime();

/// The command that edits a file in place without a spare copy, to be followed by a blank, the
/// quoted script, a blank and the file.
std::string_view inPlaceEditCommand();

/// To be called before and after such commands on a file: what they leave when they are killed can
/// then be told from other people's files. Where one of them failed, or was killed alone, that is
/// removed at the end.
enum class EditsOutcome { allSucceeded, someFailed };
void beginInPlaceEdits(const std::filesystem::path& file);
void endInPlaceEdits(const std::filesystem::path& file, EditsOutcome outcome);

/// Removes what edits of this file left when they were killed, and nothing that may be another's.
void removeUnfinishedEdits(const std::filesystem::path& file);

/// The shell command that unpacks a zip archive into a folder, overwriting. Its status is 0 when
/// all of it was unpacked.
std::string unzipCommand(const std::filesystem::path& archive,
                         const std::filesystem::path& directory);

/// The beginning of a shell command that carries out the rest of it with this user's and this
/// group's rights alone; ends in a blank. Empty where the system has no program for that, or where
/// we lack the rights to become somebody else.
std::string commandToBecome(std::string_view user, std::string_view group);

/// Whether the scanning engine at this path is what its maker or administrator installed.
bool engineSignatureIsSound(const std::filesystem::path& engine);

}  // namespace tarnwick::platform
