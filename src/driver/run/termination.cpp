#include "driver/run/termination.hpp"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string_view>

#include "platform/platform.hpp"

namespace tarnwick {
namespace {

constexpr std::array<int, 4> terminationSignals{SIGTERM, SIGINT, SIGQUIT, SIGABRT};

// The one global of the program: a signal handler is handed nothing but a number.
struct {
  std::atomic<const RunContext*> run{nullptr};  ///< set before any handler is
  std::atomic<pid_t> group{0};
} interrupted;

sigset_t terminationSignalSet() {
  sigset_t set{};
  sigemptyset(&set);
  for (const int number : terminationSignals) sigaddset(&set, number);
  return set;
}

void maskTerminationSignals(int how) {
  const sigset_t set = terminationSignalSet();
  ::pthread_sigmask(how, &set, nullptr);
}

/// A reader that has stopped reading must not keep the run from ending.
void writeIfReady(int descriptor, std::string_view line) {
  constexpr int patience = 200;  // milliseconds
  pollfd watched{descriptor, POLLOUT, 0};
  if (descriptor < 0 || ::poll(&watched, 1, patience) <= 0) return;
  [[maybe_unused]] const ssize_t written = ::write(descriptor, line.data(), line.size());
}

/// What printMessage does, by means that are safe here.
void announce() {
  constexpr std::string_view line = "killling...\n";
  const RunContext* const run = interrupted.run;
  if (!run->quietMode) writeIfReady(STDOUT_FILENO, line);
  if (run->logEnabled) writeIfReady(run->logFile.descriptor(), line);
}

[[noreturn]] void becomeShellCommand(const char* commandLine) {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (const int number : terminationSignals) ::sigaction(number, &standard, nullptr);
  ::sigaction(SIGPIPE, &standard, nullptr);
  sigset_t none{};
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  ::execl("/bin/sh", "sh", "-c", commandLine, static_cast<char*>(nullptr));
  ::_exit(127);
}

void runShellCommandSafely(const char* commandLine) {
  const pid_t child = platform::forkInSignalHandler();
  if (child == 0) becomeShellCommand(commandLine);
  if (child > 0) ::waitpid(child, nullptr, 0);
}

/// False when none was found.
bool killEveryFreshclam() {
  std::array<pid_t, 1024> processes{};
  std::array<char, 4096> path;  // NOLINT(*-member-init): filled for each process
  bool found = false;
  const std::size_t count = platform::listProcesses(processes);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view executable = platform::executablePathOf(processes[i], path);
    if (executable.find("freshclam") == std::string_view::npos) continue;
    // Once for each process found, although the first command reaches them all.
    runShellCommandSafely("killall freshclam");
    found = true;
  }
  return found;
}

/// One that is only just being started is not given away by any executable's path yet.
void killFreshclamBeingStarted() {
  const pid_t group = interrupted.group;
  if (group > 0) ::kill(-group, SIGTERM);
}

}  // namespace

void killFreshclamAndExit(int /*signalNumber*/) {
  announce();
  if (!killEveryFreshclam()) killFreshclamBeingStarted();
  ::_exit(255);
}

TerminationHandlers::TerminationHandlers(const RunContext& context) {
  interrupted.run = &context;
  struct sigaction action {};
  action.sa_handler = killFreshclamAndExit;
  // No second signal may cut the first one's work short.
  sigfillset(&action.sa_mask);
  for (const int number : terminationSignals) ::sigaction(number, &action, nullptr);
  // The caller may have started us with some of them blocked.
  maskTerminationSignals(SIG_UNBLOCK);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, nullptr);
  // A caller that ignores it would otherwise keep us from learning how our children ended.
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  ::sigaction(SIGCHLD, &standard, nullptr);
}

TerminationHandlers::~TerminationHandlers() {
  maskTerminationSignals(SIG_BLOCK);
}

void endWithThisRun(pid_t group) {
  interrupted.group = group;
}

TerminationDelay::TerminationDelay() {
  maskTerminationSignals(SIG_BLOCK);
}

TerminationDelay::~TerminationDelay() {
  maskTerminationSignals(SIG_UNBLOCK);
}

}  // namespace tarnwick
