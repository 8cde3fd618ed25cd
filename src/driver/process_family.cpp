#include "driver/process_family.hpp"

#include <poll.h>

#include <algorithm>
#include <csignal>

#include "platform/platform.hpp"

namespace tarnwick {

ProcessFamily::ProcessFamily(pid_t ancestor) {  // NOLINT(*-member-init): see members_
  if (ancestor <= 0) return;
  add(ancestor);
  // A process that the system cannot stop at once, on a slow disk say, must not keep the run from
  // ending.
  constexpr int scansAtMost = 100;
  constexpr int pause = 1;  // milliseconds
  // Scan until two scans in a row find nothing new: a process may have forked just before it
  // stopped.
  for (int scans = 0, quiet = 0; quiet < 2 && scans < scansAtMost; ++scans) {
    quiet = adoptNewcomers() ? 0 : quiet + 1;
    if (quiet == 0) ::poll(nullptr, 0, pause);
  }
}

void ProcessFamily::terminate() const {
  for (std::size_t i = 0; i < size_; ++i) {
    ::kill(members_[i], SIGTERM);
    ::kill(members_[i], SIGCONT);
  }
}

/// Whether a member was new, or is still running.
bool ProcessFamily::adoptNewcomers() {
  bool changed = false;
  platform::ProcessList processes;
  while (const std::optional<pid_t> process = processes.next()) {
    const auto seen = platform::lookAtProcess(*process);
    if (!seen) continue;
    if (has(*process)) {
      changed = changed || !seen->standsStill;
    } else if (has(seen->parent)) {
      add(*process);
      changed = true;
    }
  }
  return changed;
}

void ProcessFamily::add(pid_t process) {
  if (size_ == members_.size()) return;
  members_[size_++] = process;
  ::kill(process, SIGSTOP);
}

bool ProcessFamily::has(pid_t process) const {
  const auto* const end = members_.begin() + size_;
  return std::find(members_.begin(), end, process) != end;
}

}  // namespace tarnwick
