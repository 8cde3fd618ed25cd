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

/// A child process; this program has one at a time. While it runs, a termination signal to this
/// program terminates it and its descendants too.
class Child {
 public:
  Child() { posix_spawn_file_actions_init(&actions_); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { posix_spawn_file_actions_destroy(&actions_); }

  void changeFolder(const fs::path& folder) {
    posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
  }

  void redirect(int descriptor, const FileDescriptor& to) {
    posix_spawn_file_actions_adddup2(&actions_, to.get(), descriptor);
  }

  /// Returns 0 or the error number. The caller must reap a child that was started.
  [[nodiscard]] int start(const std::string& executable,
                          const std::vector<std::string>& arguments) {
    platform::closeOtherDescriptors(actions_, attributes_.get());
    std::vector<char*> list;
    list.push_back(const_cast<char*>(executable.c_str()));
    for (const std::string& argument : arguments) {
      list.push_back(const_cast<char*>(argument.c_str()));
    }
    list.push_back(nullptr);
    const TerminationDelay untilChildIsSet;
    const int error = ::posix_spawn(&process_, executable.c_str(), &actions_, &attributes_.get(),
                                    list.data(), environ);
    if (error == 0) setChildToTerminate(process_);
    return error;
  }

  [[nodiscard]] bool hasEnded() const { return waitForEnd(WNOHANG); }

  /// Waits for the child to end.
  [[nodiscard]] ExitStatus reap() {
    // Wait without reaping first, so that the id cannot be reused while the signal handler may
    // still signal it.
    waitForEnd(0);
    clearChildToTerminate();
    constexpr int unknown = -1;
    int waitStatus = unknown;
    while (::waitpid(process_, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    return ExitStatus::fromWaitStatus(waitStatus);
  }

 private:
  /// Waits for the end without reaping, or with WNOHANG only tests for it. True if the child has
  /// ended, or if the system cannot tell.
  bool waitForEnd(int options) const {  // NOLINT(modernize-use-nodiscard): reap needs no answer
    siginfo_t ended{};
    while (::waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOWAIT | options) != 0) {
      if (errno != EINTR) return true;
    }
    return ended.si_pid != 0;
  }

  SpawnAttributes attributes_;
  posix_spawn_file_actions_t actions_{};
  pid_t process_ = 0;
};

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

/// Reads once from a pipe and closes it at its end. Appends the bytes to `into`, if there is one,
/// up to a limit that is far above any output that a caller needs.
void drain(FileDescriptor& pipe, std::string* into) {
  constexpr std::size_t longest = 1U << 20U;
  std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by read
  const ssize_t count = readSome(pipe.get(), buffer);
  if (count <= 0) {
    pipe.reset();
  } else if (into != nullptr && into->size() < longest) {
    into->append(buffer.data(), static_cast<std::size_t>(count));
  }
}

/// Waits up to `milliseconds` for output and reads it.
void drainReady(std::array<FileDescriptor, 2>& pipes, std::string* into, int milliseconds) {
  std::array<pollfd, 2> watched{pollfd{pipes[0].get(), POLLIN, 0},
                                pollfd{pipes[1].get(), POLLIN, 0}};
  if (::poll(watched.data(), watched.size(), milliseconds) <= 0) return;
  for (std::size_t i = 0; i < pipes.size(); ++i) {
    if (watched[i].revents != 0) drain(pipes[i], into);
  }
}

/// Drains the pipes while the child runs, so that the child never waits for a reader. Does not wait
/// for a process that inherited the pipes from the child.
void drainUntilEnd(const Child& child, std::array<FileDescriptor, 2>& pipes, std::string* into) {
  constexpr int longestWait = 100;  // milliseconds; the child may end and leave its pipes open
  while (pipes[0].isOpen() || pipes[1].isOpen()) {
    // Test before draining: once the child has ended, one read gets everything it wrote.
    const bool ended = child.hasEnded();
    drainReady(pipes, into, ended ? 0 : longestWait);
    if (ended) return;
  }
}

/// The status that the C library's `system` returns if there is no shell.
ExitStatus statusWithoutShell(int error) {
  constexpr int cannotExecute = 127;
  if (error == EAGAIN || error == ENOMEM) return ExitStatus::unknown();
  return ExitStatus::exited(cannotExecute);
}

}  // namespace

ExitStatus runShellCommand(const std::string& commandLine) {
  Child shell;
  const int error = shell.start("/bin/sh", {"-c", commandLine});
  if (error != 0) return statusWithoutShell(error);
  return shell.reap();
}

ProgramResult runProgram(const ProgramRun& run) {
  Child child;
  if (run.workingDirectory) child.changeFolder(*run.workingDirectory);
  Pipe input;
  Pipe output;
  Pipe errors;
  if (run.output == ProgramOutput::captured) {
    input = makePipe();
    child.redirect(STDIN_FILENO, input.reading);
  }
  if (run.output != ProgramOutput::inherited) {
    output = makePipe();
    if (run.output == ProgramOutput::dropped) errors = makePipe();
    child.redirect(STDOUT_FILENO, output.writing);
    child.redirect(STDERR_FILENO, errors.writing.isOpen() ? errors.writing : output.writing);
  }
  ProgramResult result;
  if (child.start(run.executable, run.arguments) != 0) return result;
  input = {};
  output.writing.reset();
  errors.writing.reset();
  std::array<FileDescriptor, 2> pipes{std::move(output.reading), std::move(errors.reading)};
  const bool captured = run.output == ProgramOutput::captured;
  drainUntilEnd(child, pipes, captured ? &result.output : nullptr);
  result.status = child.reap();
  return result;
}

}  // namespace tarnwick
