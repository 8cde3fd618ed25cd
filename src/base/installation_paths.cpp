#include "base/installation_paths.hpp"

namespace tarnwick {

std::string inPrefix(std::string_view path) {
  std::string result = "/usr/local/vestRum";
  if (!path.empty()) result.append("/").append(path);
  return result;
}

std::string fixedDatabaseDirectory() {
  return inPrefix("share/clamav");
}

std::string sigtoolPath() {
  return inPrefix("bin/sigtool");
}

}  // namespace tarnwick
