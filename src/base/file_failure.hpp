#pragma once

#include <filesystem>
#include <string>

namespace tarnwick {

/// Why an operation on a file or folder failed.
struct FileFailure {
  std::filesystem::path path;
  int error = 0;  ///< an errno value
};

/// Path and reason, for the platform log.
[[nodiscard]] std::string describe(const FileFailure& failure);

}  // namespace tarnwick
