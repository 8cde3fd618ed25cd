#include "base/platform_log.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <ctime>

#include "base/file_descriptor.hpp"

namespace tarnwick {

void platformLog(std::string_view message) {
  using std::chrono::system_clock;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  static_cast<void>(localtime_r(&seconds, &local));
  static_cast<void>(
      writeFully(STDERR_FILENO,
                 fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} tarnwick[{}] {}\n",
                             local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                             local.tm_min, local.tm_sec, milliseconds, ::getpid(), message)));
}

}  // namespace tarnwick
