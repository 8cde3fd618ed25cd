#include "driver/run_context.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace tarnwick {

void LogFile::open(const std::string& path) {
  close();
  descriptor_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
}

void LogFile::close() {
  // Forgotten first: the signal handler must never write to a number that means another file.
  const int descriptor = descriptor_.exchange(-1);
  if (descriptor >= 0) ::close(descriptor);
}

std::filesystem::path inDataDirectory(const RunContext& context, std::string_view name) {
  return std::filesystem::path(context.dataDirectory) / name;
}

}  // namespace tarnwick
