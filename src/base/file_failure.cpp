#include "base/file_failure.hpp"

#include <fmt/format.h>

#include <system_error>

namespace tarnwick {

std::string describe(const FileFailure& failure) {
  return fmt::format("{}: {}", failure.path.string(),
                     std::system_category().message(failure.error));
}

}  // namespace tarnwick
