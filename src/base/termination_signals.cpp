#include "base/termination_signals.hpp"

namespace tarnwick {

bool isIgnored(int signalNumber) {
  struct sigaction action = {};
  return ::sigaction(signalNumber, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void maskTerminationSignals(int how, sigset_t* before) {
  sigset_t set{};
  sigemptyset(&set);  // a macro on macOS, so it cannot be qualified with ::
  for (const int number : terminationSignals) sigaddset(&set, number);
  pthread_sigmask(how, &set, before);
}

}  // namespace tarnwick
