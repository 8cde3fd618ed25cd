#include "driver/process_family.hpp"

#include <poll.h>

#include <algorithm>
#include <csignal>

#include "platform/platform.hpp"

namespace tarnwick {

ProcessFamily ProcessFamily::stop(pid_t ancestor) {
  ProcessFamily family;
  if (ancestor <= 0) return family;
  family.adopt(ancestor);
  // The run must end even if the system cannot stop a process soon, for example one that waits for
  // a slow disk.
  constexpr int scansAtMost = 100;
  constexpr int pause = 1;  // milliseconds
  // Scan until two scans in a row find nothing new: a process may have forked just before it
  // stopped.
  for (int scans = 0, quiet = 0; quiet < 2 && scans < scansAtMost; ++scans) {
    quiet = family.adoptNewcomers() ? 0 : quiet + 1;
    if (quiet == 0) ::poll(nullptr, 0, pause);
  }
  return family;
}

void ProcessFamily::terminate() const {
  for (std::size_t i = 0; i < size_; ++i) {
    ::kill(members_[i], SIGTERM);
    ::kill(members_[i], SIGCONT);
  }
}

/// Stops every process whose parent is a member and makes it a member too. True if it found such a
/// process, or a member that is still running.
bool ProcessFamily::adoptNewcomers() {
  bool changed = false;
  platform::ProcessList processes;
  while (const std::optional<pid_t> process = processes.next()) {
    const auto info = platform::processInfoOf(*process);
    if (!info) continue;
    if (has(*process)) {
      changed = changed || !info->cannotFork;
    } else if (has(info->parent)) {
      adopt(*process);
      changed = true;
    }
  }
  return changed;
}

/// Stops a process and makes it a member, if there is room for one more.
void ProcessFamily::adopt(pid_t process) {
  if (size_ == members_.size()) return;
  members_[size_++] = process;
  ::kill(process, SIGSTOP);
}

bool ProcessFamily::has(pid_t process) const {
  const auto* const end = members_.begin() + size_;
  return std::find(members_.begin(), end, process) != end;
}

}  // namespace tarnwick
