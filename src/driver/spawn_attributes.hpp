#pragma once

#include <spawn.h>

namespace tarnwick {

/// How every child starts: with default signal dispositions and no signal blocked. Only SIGHUP
/// stays ignored if this program ignores it, so that `nohup` protects the children too.
class SpawnAttributes {
 public:
  SpawnAttributes();
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes();

  [[nodiscard]] posix_spawnattr_t& get() { return attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

}  // namespace tarnwick
