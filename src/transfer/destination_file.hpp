#pragma once

#include <filesystem>
#include <string_view>

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// The file that a download fills. It's made when the first byte comes, or at the finish of an
/// empty body, and is gone again unless it was completed.
class DestinationFile {
 public:
  explicit DestinationFile(std::filesystem::path path) : path_(std::move(path)) {}
  DestinationFile(const DestinationFile&) = delete;
  DestinationFile& operator=(const DestinationFile&) = delete;
  ~DestinationFile();

  /// False when the bytes cannot be written.
  bool append(std::string_view bytes);
  bool complete();

 private:
  bool open();

  std::filesystem::path path_;
  FileDescriptor file_;
  bool complete_ = false;
};

}  // namespace tarnwick
