#include "base/file_descriptor.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace tarnwick {

void FileDescriptor::reset(int descriptor) {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = descriptor;
}

bool writeFully(int descriptor, std::string_view bytes, int patience) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pollfd ready{descriptor, POLLOUT, 0};
      if (::poll(&ready, 1, patience) == 0) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

ssize_t readSome(int descriptor, std::span<char> buffer) {
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count >= 0 || errno != EINTR) return count;
  }
}

}  // namespace tarnwick
