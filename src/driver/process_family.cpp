#include "driver/process_family.hpp"

#include <poll.h>

#include <algorithm>
#include <csignal>

#include "platform/platform.hpp"

namespace tarnwick {

ProcessFamily::ProcessFamily(pid_t ancestor) {
  if (ancestor <= 0) return;
  take(ancestor);
  // One that the system cannot stop at once, on a slow disk say, must not keep the run from ending.
  constexpr int patience = 100;
  constexpr int pause = 1;  // milliseconds
  // Twice: the first look may have been too early to see what somebody started before standing.
  for (int looks = 0, still = 0; still < 2 && looks < patience; ++looks) {
    still = standsStill() ? still + 1 : 0;
    if (still == 0) ::poll(nullptr, 0, pause);
  }
}

void ProcessFamily::end() const {
  for (std::size_t i = 0; i < size_; ++i) {
    ::kill(members_[i], SIGTERM);
    ::kill(members_[i], SIGCONT);
  }
}

/// Takes in who has come since.
bool ProcessFamily::standsStill() {
  std::array<pid_t, 1024> processes{};
  bool still = true;
  const std::size_t count = platform::listProcesses(processes);
  for (std::size_t i = 0; i < count; ++i) {
    const auto seen = platform::lookAtProcess(processes[i]);
    if (!seen) continue;
    if (has(processes[i])) {
      still = still && seen->standsStill;
    } else if (has(seen->parent)) {
      take(processes[i]);
      still = false;
    }
  }
  return still;
}

void ProcessFamily::take(pid_t process) {
  if (size_ == members_.size()) return;
  members_[size_++] = process;
  ::kill(process, SIGSTOP);
}

bool ProcessFamily::has(pid_t process) const {
  const auto* const end = members_.begin() + size_;
  return std::find(members_.begin(), end, process) != end;
}

}  // namespace tarnwick
