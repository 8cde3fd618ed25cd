#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "base/files.hpp"
#include "base/text_rules.hpp"
#include "platform/platform.hpp"

namespace tarnwick::platform {

namespace fs = std::filesystem;

namespace {

std::string temporaryName() {
  return fmt::format("tarnwick-{}", ::geteuid());
}

/// A real folder, ours, and closed to everybody else.
bool isOursAlone(const fs::path& directory) {
  struct stat status = {};
  if (::lstat(directory.c_str(), &status) != 0) return false;
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
}

/// The path becomes part of command lines for the shell, and of commands run in other folders.
bool fitsInCommand(const char* path) {
  return path != nullptr && *path == '/' && isPlainShellWord(path);
}

/// Folders under a random name that killed runs left, from when the usual name was not to be had.
void sweepSpareDirectories(const fs::path& parent) {
  for (const std::string& name : namesIn(parent).value_or(std::vector<std::string>{})) {
    const bool named = name.starts_with(temporaryName() + "-") &&
                       name.size() == temporaryName().size() + 1 + std::strlen("XXXXXX");
    if (named && isOursAlone(parent / name)) removeTree(parent / name);
  }
}

}  // namespace

fs::path makeTemporaryDirectory() {
  const char* const configured = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
  const fs::path parent = fitsInCommand(configured) ? configured : "/tmp";
  sweepSpareDirectories(parent);
  fs::path usual = parent / temporaryName();
  ::mkdir(usual.c_str(), 0700);
  if (isOursAlone(usual)) return usual;
  std::string spare = usual.string() + "-XXXXXX";
  // Nothing at all, rather than a folder that may be somebody else's.
  return ::mkdtemp(spare.data()) != nullptr ? fs::path(spare) : unmakeablePath(usual);
}

void releaseTemporaryDirectory(const fs::path& directory) {
  if (isOursAlone(directory)) ::rmdir(directory.c_str());
}

}  // namespace tarnwick::platform
