#include "driver/spawn_attributes.hpp"

#include <csignal>

#include "base/termination_signals.hpp"

namespace tarnwick {

SpawnAttributes::SpawnAttributes() {
  posix_spawnattr_init(&attributes_);
  sigset_t reset{};
  sigset_t none{};
  sigfillset(&reset);
  if (isIgnored(SIGHUP)) sigdelset(&reset, SIGHUP);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes_, &reset);
  posix_spawnattr_setsigmask(&attributes_, &none);
  posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

SpawnAttributes::~SpawnAttributes() {
  posix_spawnattr_destroy(&attributes_);
}

}  // namespace tarnwick
