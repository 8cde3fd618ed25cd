#include "driver/termination.hpp"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <string_view>

#include "base/termination_signals.hpp"
#include "driver/process_family.hpp"
#include "platform/platform.hpp"

namespace tarnwick {
namespace {

// The program's one global variable: a signal handler gets no argument but the signal's number.
struct {
  std::atomic<const RunContext*> run{nullptr};  ///< set, like the others, before any handler
  std::atomic<const posix_spawnattr_t*> childAttributes{nullptr};
  std::atomic<pid_t> child{0};
  std::atomic<bool> sparesOtherRuns{false};
} interrupted;

/// Writes the line unless the descriptor stays full: the run must end even if its reader has
/// stopped reading.
void writeIfReady(int descriptor, std::string_view line) {
  constexpr int patience = 200;  // milliseconds
  pollfd watched{descriptor, POLLOUT, 0};
  if (descriptor < 0 || ::poll(&watched, 1, patience) <= 0) return;
  [[maybe_unused]] const ssize_t written = ::write(descriptor, line.data(), line.size());
}

/// Prints and logs as printMessage does, with functions that are safe in a signal handler.
void announce() {
  constexpr std::string_view line = "killling...\n";
  const RunContext* const run = interrupted.run;
  if (!run->quietMode) writeIfReady(STDOUT_FILENO, line);
  writeIfReady(run->logFile.descriptor(), line);
}

void runShellCommandSafely(const char* commandLine) {
  const pid_t child =
      platform::spawnShellInSignalHandler(commandLine, *interrupted.childAttributes.load());
  if (child > 0) ::waitpid(child, nullptr, 0);
}

void killEveryFreshclam() {
  std::array<pid_t, 1024> processes{};
  std::array<char, 4096> path;  // NOLINT(*-member-init): filled for each process
  const std::size_t count = platform::listProcesses(processes);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view executable = platform::executablePathOf(processes[i], path);
    if (executable.find("freshclam") == std::string_view::npos) continue;
    // One command for each process found, although the first reaches them all.
    runShellCommandSafely("killall freshclam");
  }
}

}  // namespace

void killFreshclamAndExit(int /*signalNumber*/) {
  announce();
  // Stop our own child before the search: it may not have exec'd freshclam yet, so it cannot be
  // found by name.
  const ProcessFamily ours = ProcessFamily::stop(interrupted.child);
  if (!interrupted.sparesOtherRuns) killEveryFreshclam();
  ours.terminate();
  ::_exit(255);
}

TerminationHandlers::TerminationHandlers(const RunContext& context) {
  interrupted.run = &context;
  interrupted.childAttributes = &childAttributes_.get();
  struct sigaction action = {};
  action.sa_handler = killFreshclamAndExit;
  // A second signal must not interrupt the handling of the first.
  sigfillset(&action.sa_mask);
  for (const int number : terminationSignals) {
    if (number != SIGHUP || !isIgnored(SIGHUP)) ::sigaction(number, &action, nullptr);
  }
  // The caller may have blocked some of these signals.
  maskTerminationSignals(SIG_UNBLOCK);
  // If the caller ignored SIGCHLD, the run could not learn how its children ended.
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  ::sigaction(SIGCHLD, &standard, nullptr);
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  for (const int number : {SIGXFSZ, SIGPIPE}) ::sigaction(number, &ignore, nullptr);
}

TerminationHandlers::~TerminationHandlers() {
  maskTerminationSignals(SIG_BLOCK);
}

void setChildToTerminate(pid_t child) {
  interrupted.child = child;
}

void clearChildToTerminate() {
  interrupted.child = 0;
}

OtherRunsSpared::OtherRunsSpared() {
  interrupted.sparesOtherRuns = true;
}

OtherRunsSpared::~OtherRunsSpared() {
  interrupted.sparesOtherRuns = false;
}

}  // namespace tarnwick
