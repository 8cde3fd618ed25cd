#include <unistd.h>

#include <string>
#include <vector>

#include "base/file_tree.hpp"
#include "platform/platform.hpp"

namespace tarnwick::platform {

namespace fs = std::filesystem;

// This sed takes the suffix of the backup as a separate argument; an empty one means no backup.
std::string_view inPlaceEditCommand() {
  return "sed -i ''";
}

// The name of this sed's temporary file contains the edited file's name, so no note is needed.
void beginInPlaceEdits(const fs::path& /*file*/) {}

void endInPlaceEdits(const fs::path& file, EditsOutcome outcome) {
  if (outcome == EditsOutcome::someFailed) removeUnfinishedEdits(file);
}

void removeUnfinishedEdits(const fs::path& file) {
  constexpr std::string_view start = ".!";
  const std::string end = "!" + file.filename().string();
  for (const std::string& name : namesIn(file.parent_path()).value_or(std::vector<std::string>{})) {
    if (name.size() <= start.size() + end.size()) continue;
    if (!name.starts_with(start) || !name.ends_with(end)) continue;
    const std::string process = name.substr(start.size(), name.size() - start.size() - end.size());
    const bool isNumber = process.find_first_not_of("0123456789") == std::string::npos;
    if (isNumber) ::unlink((file.parent_path() / name).c_str());
  }
}

}  // namespace tarnwick::platform
