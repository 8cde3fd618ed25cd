#include "base/termination_signals.hpp"

namespace tarnwick {

void maskTerminationSignals(int how, sigset_t* before) {
  sigset_t set{};
  sigemptyset(&set);  // a macro on some systems, which bears no "::"
  for (const int number : terminationSignals) sigaddset(&set, number);
  pthread_sigmask(how, &set, before);
}

}  // namespace tarnwick
