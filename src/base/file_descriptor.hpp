#pragma once

#include <sys/types.h>

#include <span>
#include <string_view>
#include <utility>

namespace tarnwick {

/// Owns an open file descriptor, and closes it in its destructor. -1 means none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    reset(std::exchange(other.descriptor_, -1));
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  [[nodiscard]] int get() const { return descriptor_; }
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
  void reset(int descriptor = -1);
  /// Gives up the descriptor; the caller must close it.
  [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

/// Writes all of `bytes`, with as many calls as that takes. False if some cannot be written, with
/// errno set. If the descriptor would block, waits up to `patience` milliseconds each time; -1
/// means no limit.
[[nodiscard]] bool writeFully(int descriptor, std::string_view bytes, int patience = -1);

/// Reads what is available, up to the size of `buffer`, and repeats an interrupted call. Returns
/// the number of bytes, 0 at the end of the file, or -1 on failure, with errno set.
[[nodiscard]] ssize_t readSome(int descriptor, std::span<char> buffer);

}  // namespace tarnwick
