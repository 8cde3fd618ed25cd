#include "publisher/at_once.hpp"

#include <thread>
#include <vector>

namespace tarnwick::publisher {

void atOnce(std::size_t count, const std::function<void(std::size_t)>& task) {
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back([&task, i] { task(i); });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace tarnwick::publisher
