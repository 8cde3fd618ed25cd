#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <system_error>
#include <variant>

#include "base/file_tree.hpp"
#include "base/path_rights.hpp"
#include "base/shell_word.hpp"
#include "platform/platform.hpp"

namespace tarnwick::platform {

namespace fs = std::filesystem;

namespace {

std::string temporaryName() {
  return fmt::format("tarnwick-{}", ::geteuid());
}

/// Whether the path is a folder, not a link, that belongs to this user and is closed to others.
bool isOursAlone(const fs::path& directory) {
  struct stat status = {};
  if (::lstat(directory.c_str(), &status) != 0) return false;
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
}

/// Whether the path can be part of shell commands, and of commands that run in other folders.
bool fitsInCommand(const fs::path& path) {
  return path.is_absolute() && isPlainShellWord(path.string());
}

/// Removes the folders with a random name that killed runs left. A run uses such a name if another
/// user has taken the usual one.
void sweepSpareDirectories(const fs::path& parent) {
  for (const std::string& name : namesIn(parent).value_or(std::vector<std::string>{})) {
    const bool named = name.starts_with(temporaryName() + "-") &&
                       name.size() == temporaryName().size() + 1 + std::strlen("XXXXXX");
    if (named && isOursAlone(parent / name)) removeTree(parent / name);
  }
}

constexpr auto usualParent = "/tmp";

/// The reason not to create temporary files in this folder; none if the run may.
std::optional<std::string> whyNotBelow(const fs::path& parent) {
  if (!fitsInCommand(parent)) return "no absolute path of plain characters";
  std::error_code error;
  if (!fs::is_directory(parent, error)) {
    return error ? error.message() : std::system_category().message(ENOTDIR);
  }
  const auto others = whereOthersCanRedirect(parent, ::geteuid());
  if (!others.empty()) return fmt::format("others can change {}", others.front().string());
  if (othersCanExchangeIn(parent, ::geteuid())) return "others can change it";
  return std::nullopt;
}

struct WhyNot {
  std::string reason;
};

/// The folder that was created or found in `parent`, or the reason of the failure.
std::variant<fs::path, WhyNot> makeBelow(const fs::path& parent) {
  sweepSpareDirectories(parent);
  fs::path usual = parent / temporaryName();
  ::mkdir(usual.c_str(), 0700);
  if (isOursAlone(usual)) return usual;
  std::string spare = usual.string() + "-XXXXXX";
  if (::mkdtemp(spare.data()) != nullptr) return spare;
  return WhyNot{std::system_category().message(errno)};
}

std::variant<fs::path, WhyNot> makeAsAsked(const fs::path& parent) {
  if (const auto reason = whyNotBelow(parent)) return WhyNot{*reason};
  return makeBelow(parent);
}

TemporaryDirectory makeInUsualParent() {
  const auto result = makeBelow(usualParent);
  if (const auto* const made = std::get_if<fs::path>(&result)) return {*made, *made};
  return {.path = std::nullopt, .shownPath = fs::path(usualParent) / temporaryName()};
}

}  // namespace

TemporaryDirectory makeTemporaryDirectory() {
  const char* const asked = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
  if (asked == nullptr || *asked == '\0' || asked == std::string_view(usualParent)) {
    return makeInUsualParent();
  }
  const auto result = makeAsAsked(asked);
  if (const auto* const made = std::get_if<fs::path>(&result)) return {*made, *made};
  TemporaryDirectory usual = makeInUsualParent();
  usual.whyNotAsAsked = std::get<WhyNot>(result).reason;
  return usual;
}

void releaseTemporaryDirectory(const fs::path& directory) {
  if (isOursAlone(directory)) ::rmdir(directory.c_str());
}

}  // namespace tarnwick::platform
