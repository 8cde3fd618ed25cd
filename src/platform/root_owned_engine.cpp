#include <sys/stat.h>

#include <system_error>

#include "base/path_rights.hpp"
#include "platform/platform.hpp"

// For systems without signed programs: checks the rights of the file and of its folder instead.
namespace tarnwick::platform {

namespace fs = std::filesystem;

bool engineSignatureIsSound(const fs::path& engine) {
  std::error_code error;
  const fs::path resolved = fs::canonical(engine, error);
  if (error) return false;
  struct stat program = {};
  if (::stat(resolved.c_str(), &program) != 0) return false;
  return S_ISREG(program.st_mode) && (program.st_mode & S_IXUSR) != 0 &&
         belongsToRootAlone(resolved) && belongsToRootAlone(resolved.parent_path());
}

}  // namespace tarnwick::platform
