#pragma once

#include <sys/types.h>

#include <span>
#include <string_view>
#include <utility>

namespace tarnwick {

/// Owns one open file descriptor and closes it when it goes. -1 stands for none.
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
  /// Hands the descriptor over to the caller.
  [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

/// Writes all of `bytes`, however the kernel cuts it up. False when the rest cannot be written;
/// errno then tells why. A descriptor that would block is waited for, each time for so many
/// milliseconds at most; -1 is for ever.
bool writeFully(int descriptor, std::string_view bytes, int patience = -1);

/// Reads what there is, at most `buffer`. 0 at the end, -1 on a failure; an interruption is
/// neither.
ssize_t readSome(int descriptor, std::span<char> buffer);

}  // namespace tarnwick
