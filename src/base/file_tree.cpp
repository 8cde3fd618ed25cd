#include "base/file_tree.hpp"

#include <system_error>

namespace tarnwick {

namespace fs = std::filesystem;

bool fileExists(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

std::optional<std::vector<std::string>> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  if (error) return std::nullopt;
  return names;
}

void removeTree(const fs::path& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

}  // namespace tarnwick
