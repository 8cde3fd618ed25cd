#include "driver/commands.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "base/file_descriptor.hpp"
#include "base/termination_signals.hpp"
#include "driver/spawn_attributes.hpp"
#include "driver/termination.hpp"
#include "platform/platform.hpp"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system declares it

namespace tarnwick {
namespace {

namespace fs = std::filesystem;

/// What a child program starts with.
class SpawnSettings {
 public:
  SpawnSettings() { posix_spawn_file_actions_init(&actions_); }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() { posix_spawn_file_actions_destroy(&actions_); }

  void changeFolder(const fs::path& folder) {
    posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
  }

  void redirect(int descriptor, const FileDescriptor& to) {
    posix_spawn_file_actions_adddup2(&actions_, to.get(), descriptor);
  }

  /// 0, or the error number.
  int spawn(pid_t& child, const std::string& executable,
            const std::vector<std::string>& arguments) {
    platform::closeOtherDescriptors(actions_, attributes_.get());
    std::vector<char*> list;
    list.push_back(const_cast<char*>(executable.c_str()));
    for (const std::string& argument : arguments) {
      list.push_back(const_cast<char*>(argument.c_str()));
    }
    list.push_back(nullptr);
    return ::posix_spawn(&child, executable.c_str(), &actions_, &attributes_.get(), list.data(),
                         environ);
  }

 private:
  SpawnAttributes attributes_;
  posix_spawn_file_actions_t actions_{};
};

/// The wait status of a child whose end nobody saw: no success.
constexpr int couldNotBeTold = -1;

struct Pipe {
  FileDescriptor reading;
  FileDescriptor writing;
};

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe(ends.data()) != 0) return {};
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

int waitFor(pid_t child, int options, int& status) {
  for (;;) {
    const pid_t ended = ::waitpid(child, &status, options);
    if (ended >= 0 || errno != EINTR) return ended;
  }
}

int exitStatusOf(int waitStatus) {
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

/// Takes what a pipe holds; closes it at its end. No answer that we wait for is nearly as long as
/// the limit on what is kept.
void drain(FileDescriptor& pipe, std::string* into) {
  constexpr std::size_t keptAtMost = 1U << 20U;
  std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by read
  const ssize_t count = readSome(pipe.get(), buffer);
  if (count <= 0) {
    pipe.reset();
  } else if (into != nullptr && into->size() < keptAtMost) {
    into->append(buffer.data(), static_cast<std::size_t>(count));
  }
}

/// Waits up to so many milliseconds for output and takes it.
void drainReady(std::array<FileDescriptor, 2>& pipes, std::string* into, int milliseconds) {
  std::array<pollfd, 2> watched{pollfd{pipes[0].get(), POLLIN, 0},
                                pollfd{pipes[1].get(), POLLIN, 0}};
  if (::poll(watched.data(), watched.size(), milliseconds) <= 0) return;
  for (std::size_t i = 0; i < pipes.size(); ++i) {
    if (watched[i].revents != 0) drain(pipes[i], into);
  }
}

/// Empties the pipes while the child runs, so that it never waits for a reader. A child that has
/// ended may have left its pipes to a program of its own: that one is not waited for.
int drainUntilExit(pid_t child, std::array<FileDescriptor, 2>& pipes, std::string* into) {
  constexpr int lookAgain = 100;  // milliseconds, for a child that closed nothing and ended
  int status = couldNotBeTold;
  while (pipes[0].isOpen() || pipes[1].isOpen()) {
    drainReady(pipes, into, lookAgain);
    if (waitFor(child, WNOHANG, status) == 0) continue;
    drainReady(pipes, into, 0);  // what a full pipe still held fits in one go
    return status;
  }
  waitFor(child, 0, status);
  return status;
}

int spawnShell(SpawnSettings& settings, pid_t& child, const std::string& commandLine) {
  return settings.spawn(child, "/bin/sh", {"-c", commandLine});
}

/// The raw status that the C library's `system` gives where there is no shell.
int shellNotStarted(int error) {
  constexpr int shellCouldNotRun = 127 << 8;
  return error == EAGAIN || error == ENOMEM ? -1 : shellCouldNotRun;
}

}  // namespace

int runShellCommand(const std::string& commandLine) {
  SpawnSettings settings;
  pid_t child = 0;
  if (const int error = spawnShell(settings, child, commandLine)) return shellNotStarted(error);
  int status = couldNotBeTold;
  waitFor(child, 0, status);
  return status;
}

int runInterruptibleShellCommand(const std::string& commandLine) {
  SpawnSettings settings;
  pid_t child = 0;
  {
    const TerminationDelay untilTheChildIsKnown;
    if (const int error = spawnShell(settings, child, commandLine)) return shellNotStarted(error);
    endWithThisRun(child);
  }
  // The number must not be another process's before it is forgotten: look first, then collect.
  siginfo_t ended{};
  while (::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) != 0 &&
         errno == EINTR) {
  }
  endWithThisRun(0);
  int status = couldNotBeTold;
  waitFor(child, 0, status);
  return status;
}

ToolResult runTool(const ToolRun& run) {
  SpawnSettings settings;
  if (run.workingDirectory) settings.changeFolder(*run.workingDirectory);
  Pipe input;
  Pipe output;
  Pipe errors;
  if (run.output == ToolOutput::captured) {
    input = makePipe();
    settings.redirect(STDIN_FILENO, input.reading);
  }
  if (run.output != ToolOutput::inherited) {
    output = makePipe();
    if (run.output == ToolOutput::dropped) errors = makePipe();
    settings.redirect(STDOUT_FILENO, output.writing);
    settings.redirect(STDERR_FILENO, errors.writing.isOpen() ? errors.writing : output.writing);
  }
  ToolResult result;
  pid_t child = 0;
  if (settings.spawn(child, run.executable, run.arguments) != 0) return result;
  input = {};
  output.writing.reset();
  errors.writing.reset();
  std::array<FileDescriptor, 2> pipes{std::move(output.reading), std::move(errors.reading)};
  const bool captured = run.output == ToolOutput::captured;
  result.status = exitStatusOf(drainUntilExit(child, pipes, captured ? &result.output : nullptr));
  return result;
}

}  // namespace tarnwick
