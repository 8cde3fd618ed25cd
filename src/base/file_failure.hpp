#pragma once

#include <filesystem>
#include <string>

namespace tarnwick {

/// Why something could not be done to a file or folder.
struct FileFailure {
  std::filesystem::path path;
  int error = 0;  ///< as errno has it
};

/// Path and reason, for the platform log.
std::string describe(const FileFailure& failure);

}  // namespace tarnwick
