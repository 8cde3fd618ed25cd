#pragma once

#include <spawn.h>

namespace tarnwick {

/// How every child starts: default signal dispositions, no signal blocked. Only a hang-up that this
/// program ignores stays ignored, so that `nohup` protects the children too.
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
