#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "base/durable_file.hpp"
#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "platform/platform.hpp"

namespace tarnwick::platform {
namespace {

namespace fs = std::filesystem;

// Exists while edits are in progress. Its first line is their folder; the others are the names in
// that folder that look like temporary files of sed but existed before the edits.
fs::path noteOfEdits() {
  return fs::path(stateDirectory) / "edits";
}

/// Whether the name is "sed" and six letters or digits. An administrator's file may match too.
bool looksTemporary(const std::string& name) {
  constexpr std::string_view prefix = "sed";
  constexpr std::size_t randomCharacters = 6;
  return name.starts_with(prefix) && name.size() == prefix.size() + randomCharacters &&
         std::all_of(name.begin(), name.end(),
                     [](unsigned char c) { return c < 0x80 && std::isalnum(c) != 0; });
}

std::vector<std::string> linesOf(const fs::path& file) {
  std::vector<std::string> lines;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// Whether a file belongs to this process alone and was last written to while the edits could have
/// been in progress.
bool wasWrittenDuring(const struct stat& edits, const fs::path& path) {
  constexpr time_t longest = 10;  // seconds; all edits together take a fraction of one
  struct stat file = {};
  if (::lstat(path.c_str(), &file) != 0) return false;
  const auto moment = [](const timespec& time) { return std::pair(time.tv_sec, time.tv_nsec); };
  return S_ISREG(file.st_mode) && file.st_uid == ::geteuid() && file.st_nlink == 1 &&
         moment(file.st_mtim) >= moment(edits.st_mtim) &&
         file.st_mtim.tv_sec <= edits.st_mtim.tv_sec + longest;
}

}  // namespace

// If the file is a link, sed edits the link's target.
std::string_view inPlaceEditCommand() {
  return "sed -i --follow-symlinks";
}

// sed creates its temporary file beside the link's target.
void beginInPlaceEdits(const fs::path& file) {
  std::error_code error;
  const fs::path folder = fs::canonical(file, error).parent_path();
  if (error) return;
  std::string note = folder.string() + '\n';
  for (const std::string& name : namesIn(folder).value_or(std::vector<std::string>{})) {
    if (looksTemporary(name)) note += name + '\n';
  }
  // Without the note the run removes no file, because each may belong to an administrator.
  static_cast<void>(writeFileWhole(noteOfEdits(), note, 0600));
}

void endInPlaceEdits(const fs::path& file, EditsOutcome outcome) {
  if (outcome == EditsOutcome::someFailed) return removeUnfinishedEdits(file);
  ::unlink(noteOfEdits().c_str());
}

void removeUnfinishedEdits(const fs::path& /*file*/) {
  struct stat edits = {};
  const std::vector<std::string> note = linesOf(noteOfEdits());
  if (note.empty() || ::stat(noteOfEdits().c_str(), &edits) != 0) return;
  const fs::path folder = note.front();
  for (const std::string& name : namesIn(folder).value_or(std::vector<std::string>{})) {
    const bool wasThere = std::find(note.begin() + 1, note.end(), name) != note.end();
    if (looksTemporary(name) && !wasThere && wasWrittenDuring(edits, folder / name)) {
      ::unlink((folder / name).c_str());
    }
  }
  ::unlink(noteOfEdits().c_str());
}

}  // namespace tarnwick::platform
