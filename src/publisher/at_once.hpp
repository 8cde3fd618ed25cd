#pragma once

#include <cstddef>
#include <functional>

namespace tarnwick::publisher {

/// Calls `task` with every number below `count`, each on a thread of its own, and waits for all.
/// `task` must not throw.
void atOnce(std::size_t count, const std::function<void(std::size_t)>& task);

}  // namespace tarnwick::publisher
