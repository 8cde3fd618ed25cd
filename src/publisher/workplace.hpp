#pragma once

#include <filesystem>

#include "base/file_descriptor.hpp"
#include "publisher/child.hpp"
#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// A lock on a home, and a folder for what is under way, which goes with it. Children get the lock
/// as their standard input, so that a program which outlives a killed command still keeps the next
/// one away from its files.
class Workplace {
 public:
  /// The home's own: one change at a time. Waits for another command, and says so.
  static Workplace inHome(const Home& home);
  /// That of `mirror`, so that no command that publishes waits for a download.
  static Workplace ofMirror(const Home& home);
  /// The home's own for its owner; else a temporary folder without a lock.
  static Workplace forReading(const Home& home);
  /// A temporary folder without a lock, for a command that only reads.
  static Workplace elsewhere();

  Workplace(Workplace&&) = default;
  Workplace& operator=(Workplace&&) = delete;
  ~Workplace();

  [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
  /// A run of one of ClamAV's programs: its temporary files lie here, and it holds the lock.
  [[nodiscard]] ChildRun run(std::string program, std::vector<std::string> arguments,
                             const std::filesystem::path& folder = {}) const;

 private:
  Workplace() = default;
  void lock(const std::filesystem::path& file, const std::string& whatIsWaitedFor);
  void makeAnew(const std::filesystem::path& folder);

  FileDescriptor lock_;
  std::filesystem::path folder_;
};

}  // namespace tarnwick::publisher
