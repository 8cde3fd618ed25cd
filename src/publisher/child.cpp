#include "publisher/child.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "base/text_rules.hpp"
#include "driver/spawn_attributes.hpp"
#include "platform/platform.hpp"
#include "publisher/disk.hpp"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every system declares it

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

class Actions {
 public:
  Actions() { posix_spawn_file_actions_init(&actions_); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;
  ~Actions() { posix_spawn_file_actions_destroy(&actions_); }

  [[nodiscard]] posix_spawn_file_actions_t& get() { return actions_; }
  void redirect(int descriptor, int to) {
    posix_spawn_file_actions_adddup2(&actions_, to, descriptor);
  }

 private:
  posix_spawn_file_actions_t actions_{};
};

/// Our environment with what a child gets besides.
std::vector<std::string> environmentWith(const std::map<std::string, std::string>& more) {
  std::vector<std::string> lines;
  for (char** line = environ; *line != nullptr; ++line) {
    const std::string_view text = *line;
    if (!more.contains(std::string(text.substr(0, text.find('='))))) lines.emplace_back(text);
  }
  for (const auto& [name, value] : more) lines.push_back(fmt::format("{}={}", name, value));
  return lines;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

int exitStatusOf(int waitStatus) {
  constexpr int killed = 128;
  return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : killed + WTERMSIG(waitStatus);
}

pid_t spawn(const ChildRun& run, const std::string& path, Actions& actions) {
  SpawnAttributes attributes;
  if (!run.folder.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions.get(), run.folder.c_str());
  }
  platform::closeOtherDescriptors(actions.get(), attributes.get());
  std::vector<std::string> arguments{run.program};
  arguments.insert(arguments.end(), run.arguments.begin(), run.arguments.end());
  std::vector<std::string> environment = environmentWith(run.environment);
  pid_t child = -1;
  const int error = ::posix_spawn(&child, path.c_str(), &actions.get(), &attributes.get(),
                                  pointersTo(arguments).data(), pointersTo(environment).data());
  return error == 0 ? child : -1;
}

}  // namespace

std::optional<std::string> findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const char* const path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): nobody sets it
  for (const std::string_view folder : split(path != nullptr ? path : "/usr/bin:/bin", ':')) {
    const fs::path candidate = fs::path(folder.empty() ? "." : folder) / name;
    if (isFile(candidate) && ::access(candidate.c_str(), X_OK) == 0) return candidate.string();
  }
  return std::nullopt;
}

Child::Child(const ChildRun& run) {
  if (run.limit) deadline_ = std::chrono::steady_clock::now() + *run.limit;
  const std::optional<std::string> path = findProgram(run.program);
  std::array<int, 2> ends{-1, -1};
  if (!path || ::pipe(ends.data()) != 0) return;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  output_.reset(ends[0]);
  const FileDescriptor writing(ends[1]);
  const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  Actions actions;
  actions.redirect(STDIN_FILENO, run.input >= 0 ? run.input : nothing.get());
  actions.redirect(STDOUT_FILENO, run.output == ChildOutput::both ? writing.get() : nothing.get());
  actions.redirect(STDERR_FILENO, writing.get());
  id_ = spawn(run, *path, actions);
}

Child::~Child() {
  if (id_ <= 0) return;
  ::kill(id_, SIGKILL);
  int status = 0;
  while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
}

void Child::drain(std::string& into) {
  constexpr std::size_t keptAtMost = 64U << 10U;
  std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by read
  const ssize_t count = readSome(output_.get(), buffer);
  if (count <= 0) {
    output_.reset();
  } else if (into.size() < keptAtMost) {
    into.append(buffer.data(), std::min(static_cast<std::size_t>(count), keptAtMost - into.size()));
  }
}

void Child::endIfLate(ChildEnd& end) const {
  constexpr std::chrono::seconds grace(5);
  const auto now = std::chrono::steady_clock::now();
  if (!deadline_ || now < *deadline_) return;
  end.ranOutOfTime = true;
  ::kill(id_, now < *deadline_ + grace ? SIGTERM : SIGKILL);
}

ChildEnd Child::wait() {
  constexpr int lookAgain = 100;  // milliseconds, for a child that closed nothing and ended
  ChildEnd end;
  int status = 0;
  while (id_ > 0) {
    pollfd watched{output_.get(), POLLIN, 0};
    if (::poll(&watched, 1, lookAgain) > 0) {
      drain(end.output);
    }
    endIfLate(end);
    const pid_t ended = ::waitpid(id_, &status, output_.isOpen() || deadline_ ? WNOHANG : 0);
    if (ended != id_) continue;
    // What a full pipe still held fits in one go.
    if (output_.isOpen() && ::poll(&watched, 1, 0) > 0) drain(end.output);
    id_ = -1;
    end.status = exitStatusOf(status);
  }
  return end;
}

ChildEnd runChild(const ChildRun& run) {
  return Child(run).wait();
}

}  // namespace tarnwick::publisher
