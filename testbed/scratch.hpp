#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace tarnwick::testbed {

/// A temporary folder; the destructor deletes it.
class Scratch {
 public:
  /// A caller that acts as another user needs a parent that this user can enter, such as /tmp.
  explicit Scratch(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string name = (parent / "tarnwick-unit-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { std::filesystem::remove_all(path_); }

  [[nodiscard]] std::string path(const std::string& name) const { return path_ / name; }

  [[nodiscard]] std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }

  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream stream(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

 private:
  std::filesystem::path path_;
};

}  // namespace tarnwick::testbed
