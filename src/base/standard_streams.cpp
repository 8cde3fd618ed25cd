#include "base/standard_streams.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_descriptor.hpp"

namespace tarnwick {

void writeToStandardOutput(std::string_view text) {
  if (writeFully(STDOUT_FILENO, text) || errno != EPIPE) return;
  const FileDescriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (nowhere.isOpen()) ::dup2(nowhere.get(), STDOUT_FILENO);
}

void keepStandardDescriptorsOpen() {
  int descriptor = 0;
  do {
    descriptor = ::open("/dev/null", O_RDWR);  // no O_CLOEXEC: children inherit it
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) ::close(descriptor);
}

}  // namespace tarnwick
