#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "base/file_descriptor.hpp"

namespace tarnwick {

/// The file that a download fills. It's made by the first `append`, and is gone again unless it was
/// completed.
class DestinationFile {
 public:
  /// Without a path every `append` fails.
  explicit DestinationFile(std::optional<std::filesystem::path> path) : path_(std::move(path)) {}
  DestinationFile(const DestinationFile&) = delete;
  DestinationFile& operator=(const DestinationFile&) = delete;
  ~DestinationFile();

  /// False when the file cannot be made or the bytes cannot be written.
  bool append(std::string_view bytes);
  void complete() { complete_ = true; }

 private:
  bool open();

  std::optional<std::filesystem::path> path_;
  FileDescriptor file_;
  bool complete_ = false;
};

}  // namespace tarnwick
